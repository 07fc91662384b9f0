// Tag dispatch and error presentation.
#include "services/TagDispatcher.h"

#include "logging/Log.h"
#include "process/Metrics.h"

#include <utility>

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
    for (const auto& name : region.policy.refuseMarkupTags)
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
// What the host does around each of the database module's tags.
struct TagRole
{
    std::string_view name;
    // Its opens may create the database they name: the editor's database list promises that a
    // new name "will be created". No other tag may, so a visitor's URL never creates one.
    bool createsDatabases;
    // It puts text values into the page: they are answered HTML-encoded unless the region or
    // the tag (rawFields="yes") asks for them as stored.
    bool showsFieldValues;
    // Its "mode" parameter says whether it changes a database.
    bool writesByMode;
};

constexpr TagRole kTagRoles[] = {{"kivEditDatabase", true, false, false},
                                 {"kivSearchDatabase", false, true, false},
                                 {"kivModifyDatabase", false, false, true}};

// The parameter a page author gives a showing tag to have its values as stored. The host takes
// it out before the module sees the tag, so it never splits a field and value pair.
constexpr std::string_view kRawFieldsParameter = "rawFields";

// The modes of kivModifyDatabase that only read. The module tells modes apart by a 32-bit
// identifier of their text, so a text that is not exactly one of these might still act as a
// write: every other mode counts as one.
constexpr std::string_view kReadingModes[] = {"listDatabases", "listFields", "export"};

const TagRole* roleOf(std::string_view tagName)
{
    for (const TagRole& role : kTagRoles)
        if (equalsIgnoringCase(role.name, tagName))
            return &role;
    return nullptr;
}

// Removes every rawFields parameter; true when one said "yes".
bool takeRawFields(NameValueList& parameters)
{
    bool raw = false;
    for (auto parameter = parameters.begin(); parameter != parameters.end();)
    {
        if (!equalsIgnoringCase(parameter->first, kRawFieldsParameter))
        {
            ++parameter;
            continue;
        }
        raw = raw || equalsIgnoringCase(trim(parameter->second), "yes");
        parameter = parameters.erase(parameter);
    }
    return raw;
}

// The mode of a tag that changes a database, or nullptr. The module reads the first "mode"
// parameter; without one it changes nothing.
const std::string* writingMode(const TagInvocation& tag)
{
    for (const auto& [name, value] : tag.parameters)
        if (equalsIgnoringCase(name, "mode"))
        {
            for (const auto reading : kReadingModes)
                if (equalsIgnoringCase(value, reading))
                    return nullptr;
            return &value;
        }
    return nullptr;
}

bool isReadingMethod(const std::string& method)
{
    return method == "GET" || method == "HEAD";
}

ModuleCallResult writeNeedsPost(const TagInvocation& tag, const std::string& mode, const std::string& method)
{
    ModuleCallResult refused;
    refused.code = kKivResult_NotAuthorized;
    refused.error = {true,
                     "The &lt;" + htmlEncode(tag.name) + "&gt; tag with mode &quot;" + htmlEncode(mode) +
                         "&quot; changes a database, so it runs only for a form sent with POST; this page "
                         "was requested with " +
                         method + ".",
                     "Send the form that leads to this page with method=&quot;post&quot;. Links, crawlers "
                     "and prefetching only read pages; the region's writes_need_post setting allows "
                     "writes on GET."};
    return refused;
}
} // namespace

bool TagDispatcher::admitsWrite(const TagInvocation& tag)
{
    if (myRequest.protectedArea || myRequest.writeAdmitted)
        return true;
    RegionState& region = myRequest.region;
    const std::string& address = myRequest.request.remoteAddress;
    const auto decision = region.publicWrites.admit(address, WriteRateLimiter::Clock::now());
    if (decision.retryAfterSeconds == 0)
    {
        myRequest.writeAdmitted = true;
        return true;
    }
    myRequest.writeRetryAfterSeconds = decision.retryAfterSeconds;
    if (decision.firstRefusal)
        writeServerLog(LogKind::Warning, {region.region.name, myRequest.urlPath, tag.name},
                       "refused writes from " + address + ": more than " +
                           std::to_string(region.region.policy.publicWritesPerMinute) +
                           " a minute (public_write_rate); further refusals of this address are not logged "
                           "until it writes again");
    return false;
}

std::string TagDispatcher::runTag(const TagInvocation& written)
{
    auto [module, registered] = myHost.registry().findTag(written.name);
    if (!module || myRequest.refusedMarkup || myRequest.writeRetryAfterSeconds != 0 || refusesMarkup(written))
        return {};
    const RegionPolicy& policy = myRequest.region.region.policy;
    const TagRole* role = roleOf(written.name);
    TagInvocation tag = written;
    abi::ValueText valueText = abi::ValueText::AsStored;
    if (role && role->showsFieldValues && !takeRawFields(tag.parameters) && policy.encodeFields)
        valueText = abi::ValueText::HtmlEncoded;
    if (const std::string* mode = role && role->writesByMode ? writingMode(tag) : nullptr)
    {
        if (policy.writesNeedPost && isReadingMethod(myRequest.request.method))
        {
            myRequest.clearDatabaseFailure();
            return present(tag, writeNeedsPost(tag, *mode, myRequest.request.method), LogKind::Warning);
        }
        if (!admitsWrite(tag))
            return {};
    }

    myRequest.currentTag = tag;
    myRequest.inTag = true;
    myRequest.openIntent =
        role && role->createsDatabases ? db::OpenIntent::CreateIfMissing : db::OpenIntent::MustExist;
    myRequest.valueText = valueText;
    myRequest.clearDatabaseFailure();
    ModuleCallResult result = myHost.call(*module, kKivRequest_ProcessTag, &myRequest);
    myRequest.inTag = false;
    myRequest.valueText = abi::ValueText::AsStored;
    metrics::countTagCall(registered->name, result.code == 0 ? "0" : fourCharacterCode(result.code));
    return present(tag, std::move(result), LogKind::Error);
}

std::string TagDispatcher::present(const TagInvocation& tag, ModuleCallResult&& result, LogKind failureKind)
{
    const bool failed = result.error.isSet || result.code != 0;
    std::string headline = result.error.isSet ? result.error.headline
                                              : "The &lt;" + tag.name + "&gt; tag could not be processed.";
    // The outcome, for the page to say whether the tag did what it asked: "0" or the code, and
    // the headline (as text) when the tag reported an error.
    myRequest.setPageVariable("kivResult",
                              result.code == 0 ? std::string("0") : fourCharacterCode(result.code));
    myRequest.setPageVariable("kivError", failed ? htmlDecode(headline) : std::string());
    if (!failed)
        return std::move(result.output); // a 10,000-row page is not copied again

    const RegionConfig& region = myRequest.region.region;
    std::string hint = result.error.isSet ? result.error.hint : "The module reported no further information.";
    const db::ServiceFailure* failure = myRequest.databaseFailure();
    const std::string detail = failure ? failure->line : std::string();
    std::string logLine = htmlDecode(headline) + " " + htmlDecode(hint);
    if (result.code != 0)
        logLine += " (result " + fourCharacterCode(result.code) + ")";
    if (!detail.empty())
        logLine += " Database service: " + detail;
    writeServerLog(failureKind, {region.name, myRequest.urlPath, tag.name}, logLine);
    if (!region.showErrors)
        return std::move(result.output);
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
    // Its look comes from /kiv-assets/kiv.css (or the page's own stylesheet): a region's
    // Content-Security-Policy blocks inline styles.
    std::string block = "<div class=\"kiv-error\" role=\"alert\"><strong>" + sanitizeErrorText(headline) +
                        "</strong><br><span class=\"kiv-error-hint\">" + sanitizeErrorText(hint) +
                        "</span><br>";
    if (!detail.empty())
        block += "<code class=\"kiv-error-detail\">" + htmlEncode(detail) + "</code><br>";
    return block + "<span class=\"kiv-error-tag\">&lt;" + htmlEncode(tagName) + "&gt;</span></div>";
}

} // namespace kiv
