// Renders a page: the text is read in document order; every start tag that a module
// registered is handed to that module and replaced by its output; host placeholders are
// replaced by their values; <kivDoNotProcess> sections pass through untouched, and a
// <kivShowIf> section is kept only when the value it names is neither empty nor "0". Module
// output is inserted as it is and never read again, so text that came from a database can
// never run as a tag.
#pragma once

#include "common/Text.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kiv
{

enum class PlaceholderKind
{
    PageVariable, // &kivPageVariable(name);
    PathArgument, // &kivPathArgument(name);
    PostArgument  // &kivPostArgument(name);
};

struct TagInvocation
{
    std::string name;         // as written in the page
    NameValueList parameters; // attributes in written order, placeholders substituted
    std::string body;         // for container tags: raw or already rendered, by the flags
};

// How a module tag takes its body. The registration flags are read in one place
// (modules/ModuleRegistry.h); the renderer sees only the outcome.
struct TagShape
{
    bool hasBody = false; // everything up to the paired end tag belongs to the tag
    bool rawBody = false; // the body goes to the module as written, not rendered first
};

// What the renderer needs from the request it renders for.
class PageEnvironment
{
public:
    virtual ~PageEnvironment() = default;
    // How the module tag with this name takes its body; nullopt if no module has it.
    virtual std::optional<TagShape> tagShape(std::string_view name) = 0;
    // Runs one tag and returns the text that replaces it.
    virtual std::string runTag(const TagInvocation& tag) = 0;
    // The first value of a page variable or argument; empty when there is none.
    virtual std::string placeholderValue(PlaceholderKind kind, std::string_view name) = 0;
    // A problem in the page itself (a container tag without its end tag, ...).
    virtual void reportPageProblem(std::string_view tagName, std::string_view message) = 0;
};

std::string renderPage(std::string_view page, PageEnvironment& environment);

// Replaces the host placeholders in text; values are HTML-encoded when asked.
std::string substitutePlaceholders(std::string_view text, PageEnvironment& environment, bool encodeValues);

// The attributes of a start tag ("a=1 b='x y' c") in written order, values as written.
NameValueList parseTagAttributes(std::string_view attributeText);

// A tag parameter's value: placeholders become their plain values, character references
// in the written text are decoded.
std::string expandParameterValue(std::string_view written, PageEnvironment& environment);

// Removes every <kivDoNotProcess> and </kivDoNotProcess> marker (any case).
std::string removeDoNotProcessMarkers(std::string_view text);
// The same, appended to `out`: a tag's output goes into the page without a copy of its own.
void appendWithoutDoNotProcessMarkers(std::string_view text, std::string& out);

} // namespace kiv
