// The administration page: what each loaded module registered, each module's preference
// form (the module's own 'MGPr' controls inside a form whose post is handed back to it with
// 'MSPr'), and the region's databases. Preferences are stored per region. Access control is
// the site's job; this page assumes an authenticated, same-origin request.
#pragma once

#include "http/HttpMessage.h"
#include "services/ModuleHost.h"
#include "services/RequestContext.h"

namespace kiv
{

class AdminPage
{
public:
    explicit AdminPage(ModuleHost& host) : myHost(host) {}
    void handle(RequestContext& request, HttpResponse& response);

private:
    std::string renderModule(size_t index, ModuleRecord& module, RequestContext& request);
    ModuleHost& myHost;
};

} // namespace kiv
