// Names of the editor tag's parameters, modes, post arguments and field types. Defined in the
// module entry's translation unit (EditDatabaseConstants.inc).
#ifndef EDIT_DATABASE_CONSTANTS_H
#define EDIT_DATABASE_CONSTANTS_H

#include "KivString.h"
#include "KivStringID.h"

#endif
