// Connects the page renderer to the modules for one page request: hands each module tag to
// the module that registered it, and decides what the visitor and the log get to see when
// a tag reports an error. This is the one place where tag result codes and error
// information become page output, the page variables kivResult and kivError, and log lines.
// It also applies the region's policy to each tag: whether the tag's opens may create a
// database, whether the text values it shows are HTML-encoded, whether a tag that writes may run
// for this request method and this client's write rate. The database service only ever sees the
// resulting settings, never a tag name.
#pragma once

#include "logging/Log.h"
#include "pages/PageRenderer.h"
#include "services/ModuleHost.h"
#include "services/RequestContext.h"

namespace kiv
{

class TagDispatcher : public PageEnvironment
{
public:
    TagDispatcher(ModuleHost& host, RequestContext& request) : myHost(host), myRequest(request) {}

    std::optional<TagShape> tagShape(std::string_view name) override;
    std::string runTag(const TagInvocation& tag) override;
    std::string placeholderValue(PlaceholderKind kind, std::string_view name) override;
    void reportPageProblem(std::string_view tagName, std::string_view message) override;

private:
    // Whether the region's markup rule stops this tag; logs the refusal.
    bool refusesMarkup(const TagInvocation& tag);
    // Whether a write of a public page may go ahead at this client's rate; logs the first refusal.
    bool admitsWrite(const TagInvocation& tag);
    // Sets kivResult and kivError from the outcome and answers what stands in the page; a failure
    // is logged at `failureKind` and shown in the error box where the region shows errors.
    std::string present(const TagInvocation& tag, ModuleCallResult&& result, LogKind failureKind);

    ModuleHost& myHost;
    RequestContext& myRequest;
};

// The styled block that shows a tag's error where the tag stood. Headline and hint are
// HTML from the module; only character references and line breaks survive from it, so
// text that reached an error message from a visitor cannot inject markup. `detail` is the
// database service's one line of plain text, shown under them when there is one.
std::string renderErrorBlock(std::string_view tagName, std::string_view headline, std::string_view hint,
                             std::string_view detail = {});
std::string sanitizeErrorText(std::string_view html);

} // namespace kiv
