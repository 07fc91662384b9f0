// Tag dispatch and error presentation.
#include "services/TagDispatcher.h"

#include "logging/Log.h"
#include "process/Metrics.h"

namespace kiv
{

std::optional<TagShape> TagDispatcher::tagShape(std::string_view name)
{
    auto [module, tag] = myHost.registry().findTag(name);
    if (!module || !module->initialized)
        return std::nullopt;
    return TagShape{tagHasBody(tag->flags), tagBodyIsRaw(tag->flags)};
}

namespace
{

const std::string* findMarkupValue(const NameValueList& arguments)
{
    for (const auto& argument : arguments)
        if (argument.second.find_first_of("<>") != std::string::npos)
            return &argument.first;
    return nullptr;
}

} // namespace

bool TagDispatcher::refusesMarkup(const TagInvocation& tag)
{
    if (!myRequest.guardMarkup)
        return false;
    const RegionConfig& region = myRequest.region.region;
    bool guarded = false;
    for (const auto& name : region.refuseMarkupTags)
        guarded = guarded || equalsIgnoringCase(name, tag.name);
    if (!guarded)
        return false;
    const std::string* field = findMarkupValue(myRequest.postArguments);
    const char* where = "form";
    if (!field)
    {
        field = findMarkupValue(myRequest.pathArguments);
        where = "query";
    }
    if (!field)
        return false;
    myRequest.refusedMarkup = true;
    writeServerLog(LogKind::Warning, {region.name, myRequest.urlPath, tag.name},
                   std::string("refused a request whose ") + where + " field '" + *field +
                       "' contains '<' or '>' from " + myRequest.request.remoteAddress +
                       " (refuse_markup is on for this region)");
    return true;
}

namespace
{
// Tags whose opens may create the database they name: the editor's database list promises
// that a new name "will be created". No other tag may, so a visitor's URL never creates one.
constexpr std::string_view kTagsThatCreateDatabases[] = {"kivEditDatabase"};

db::OpenIntent openIntentOf(std::string_view tagName)
{
    for (const auto name : kTagsThatCreateDatabases)
        if (equalsIgnoringCase(name, tagName))
            return db::OpenIntent::CreateIfMissing;
    return db::OpenIntent::MustExist;
}
} // namespace

std::string TagDispatcher::runTag(const TagInvocation& tag)
{
    auto [module, registered] = myHost.registry().findTag(tag.name);
    if (!module || myRequest.refusedMarkup || refusesMarkup(tag))
        return {};
    myRequest.currentTag = tag;
    myRequest.inTag = true;
    myRequest.openIntent = openIntentOf(tag.name);
    myRequest.clearDatabaseFailure();
    ModuleCallResult result = myHost.call(*module, kKivRequest_ProcessTag, &myRequest);
    myRequest.inTag = false;
    metrics::countTagCall(registered->name, result.code == 0 ? "0" : fourCharacterCode(result.code));

    const bool failed = result.error.isSet || result.code != 0;
    std::string headline = result.error.isSet ? result.error.headline
                                              : "The &lt;" + tag.name + "&gt; tag could not be processed.";
    // The outcome, for the page to say whether the tag did what it asked: "0" or the code, and
    // the headline (as text) when the tag reported an error.
    myRequest.setPageVariable("kivResult",
                              result.code == 0 ? std::string("0") : fourCharacterCode(result.code));
    myRequest.setPageVariable("kivError", failed ? htmlDecode(headline) : std::string());
    if (!failed)
        return result.output;

    const RegionConfig& region = myRequest.region.region;
    std::string hint = result.error.isSet ? result.error.hint : "The module reported no further information.";
    const db::ServiceFailure* failure = myRequest.databaseFailure();
    const std::string detail = failure ? failure->line : std::string();
    std::string logLine = htmlDecode(headline) + " " + htmlDecode(hint);
    if (result.code != 0)
        logLine += " (result " + fourCharacterCode(result.code) + ")";
    if (!detail.empty())
        logLine += " Database service: " + detail;
    writeServerLog(LogKind::Error, {region.name, myRequest.urlPath, tag.name}, logLine);
    if (!region.showErrors)
        return result.output;
    return renderErrorBlock(tag.name, headline, hint, detail) + result.output;
}

std::string TagDispatcher::placeholderValue(PlaceholderKind kind, std::string_view name)
{
    const std::string* value = nullptr;
    switch (kind)
    {
    case PlaceholderKind::PageVariable:
        value = myRequest.pageVariable(name);
        break;
    case PlaceholderKind::PathArgument:
        value = findValue(myRequest.pathArguments, name);
        break;
    case PlaceholderKind::PostArgument:
        value = findValue(myRequest.postArguments, name);
        break;
    }
    return value ? *value : std::string();
}

void TagDispatcher::reportPageProblem(std::string_view tagName, std::string_view message)
{
    writeServerLog(LogKind::Warning, {myRequest.region.region.name, myRequest.urlPath, tagName}, message);
}

std::string sanitizeErrorText(std::string_view html)
{
    std::string out;
    size_t i = 0;
    while (i < html.size())
    {
        char c = html[i];
        if (c == '<')
        {
            size_t close = html.find('>', i);
            std::string tag = close == std::string_view::npos ? "" : toLower(html.substr(i, close - i + 1));
            if (tag == "<p>" || tag == "<br>" || tag == "<br/>" || tag == "<br />" || tag == "</p>")
            {
                out += "<br>";
                i = close + 1;
                continue;
            }
            out += "&lt;";
        }
        else if (c == '>')
            out += "&gt;";
        else if (c == '"')
            out += "&quot;";
        else if (c == '&')
        {
            size_t end = i + 1;
            if (end < html.size() && html[end] == '#')
                ++end;
            size_t nameStart = end;
            while (end < html.size() && end - i < 12 &&
                   ((html[end] >= 'a' && html[end] <= 'z') || (html[end] >= 'A' && html[end] <= 'Z') ||
                    (html[end] >= '0' && html[end] <= '9')))
                ++end;
            bool reference = end > nameStart && end < html.size() && html[end] == ';';
            out += reference ? "&" : "&amp;";
        }
        else
            out += c;
        ++i;
    }
    return out;
}

std::string renderErrorBlock(std::string_view tagName, std::string_view headline, std::string_view hint,
                             std::string_view detail)
{
    std::string block =
        "<div class=\"kiv-error\" role=\"alert\" style=\"border:2px solid #b00020;background:#fdecee;"
        "color:#4a0010;padding:0.6em 0.9em;margin:0.6em 0;font-family:sans-serif;font-size:0.95em\">"
        "<strong>" +
        sanitizeErrorText(headline) + "</strong><br><span style=\"font-size:0.9em\">" +
        sanitizeErrorText(hint) + "</span><br>";
    if (!detail.empty())
        block += "<code class=\"kiv-error-detail\" style=\"font-size:0.85em\">" + htmlEncode(detail) +
                 "</code><br>";
    return block + "<span style=\"font-size:0.8em;color:#7a4050\">&lt;" + htmlEncode(tagName) +
           "&gt;</span></div>";
}

} // namespace kiv
