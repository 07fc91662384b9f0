// The administration page: what each loaded module registered, each module's preference
// form (the module's own 'MGPr' controls inside a form whose post is handed back to it with
// 'MSPr'), then the sections of AdminPage.cpp's table (databases, files, backups, errors).
// Preferences are stored per region. Access control is the site's job; this page assumes an
// authenticated request, and a same-origin one for every post.
#pragma once

#include "admin/AdminSection.h"
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
    AdminNotice savePreferences(RequestContext& request);
    ModuleHost& myHost;
};

} // namespace kiv
