// Page rendering: tag dispatch and placeholders.
#include "pages/PageRenderer.h"

namespace kiv
{

namespace
{

constexpr std::string_view kDoNotProcess = "kivDoNotProcess";
constexpr std::string_view kShowIf = "kivShowIf";
constexpr int kMaxNesting = 32;

struct Placeholder
{
    PlaceholderKind kind;
    std::string name;
    size_t length; // characters from '&' through ';'
};

std::optional<Placeholder> matchPlaceholder(std::string_view text, size_t position)
{
    static const std::pair<std::string_view, PlaceholderKind> markers[] = {
        {"&kivPageVariable(", PlaceholderKind::PageVariable},
        {"&kivPathArgument(", PlaceholderKind::PathArgument},
        {"&kivPostArgument(", PlaceholderKind::PostArgument},
    };
    std::string_view rest = text.substr(position);
    for (const auto& [marker, kind] : markers)
    {
        if (!startsWithIgnoringCase(rest, marker))
            continue;
        size_t close = rest.find(')', marker.size());
        if (close == std::string_view::npos || close + 1 >= rest.size() || rest[close + 1] != ';')
            return std::nullopt;
        std::string_view name = rest.substr(marker.size(), close - marker.size());
        if (name.find_first_of("\r\n<>&") != std::string_view::npos)
            return std::nullopt;
        return Placeholder{kind, std::string(name), close + 2};
    }
    return std::nullopt;
}

bool isNameStart(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool isNameCharacter(char c)
{
    return isNameStart(c) || (c >= '0' && c <= '9') || c == '_' || c == '-' || c == ':' || c == '.';
}
bool isSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f';
}

// The '>' that closes a tag starting at position, skipping quoted attribute values.
size_t findTagEnd(std::string_view text, size_t position)
{
    char quote = 0;
    for (size_t i = position; i < text.size(); ++i)
    {
        char c = text[i];
        if (quote)
        {
            if (c == quote)
                quote = 0;
        }
        else if (c == '"' || c == '\'')
            quote = c;
        else if (c == '>')
            return i;
    }
    return std::string_view::npos;
}

// Whether text at position is "<name" or "</name" followed by a delimiter.
bool matchesTagName(std::string_view text, size_t position, std::string_view name)
{
    if (!startsWithIgnoringCase(text.substr(position), name))
        return false;
    size_t after = position + name.size();
    return after >= text.size() || !isNameCharacter(text[after]);
}

struct EndTag
{
    size_t start; // offset of "</name"
    size_t end;   // offset after its '>'
};

// The end tag that pairs with a start tag of this name, counting nested ones of the same name.
std::optional<EndTag> findPairedEndTag(std::string_view text, size_t position, std::string_view name)
{
    int depth = 1;
    while ((position = text.find('<', position)) != std::string_view::npos)
    {
        if (position + 1 < text.size() && text[position + 1] == '/' &&
            matchesTagName(text, position + 2, name))
        {
            size_t close = text.find('>', position);
            if (close == std::string_view::npos)
                return std::nullopt;
            if (--depth == 0)
                return EndTag{position, close + 1};
            position = close + 1;
            continue;
        }
        if (matchesTagName(text, position + 1, name))
        {
            size_t close = findTagEnd(text, position);
            if (close == std::string_view::npos)
                return std::nullopt;
            if (text[close - 1] != '/')
                ++depth;
            position = close + 1;
            continue;
        }
        ++position;
    }
    return std::nullopt;
}

class Renderer
{
public:
    Renderer(PageEnvironment& environment) : myEnvironment(environment) {}

    std::string render(std::string_view text, int nesting)
    {
        std::string out;
        out.reserve(text.size());
        size_t position = 0;
        while (position < text.size())
        {
            size_t special = text.find_first_of("<&", position);
            if (special == std::string_view::npos)
            {
                out.append(text.substr(position));
                break;
            }
            out.append(text.substr(position, special - position));
            position = text[special] == '&' ? handleAmpersand(text, special, out)
                                            : handleAngle(text, special, out, nesting);
        }
        return out;
    }

private:
    size_t handleAmpersand(std::string_view text, size_t position, std::string& out)
    {
        if (auto placeholder = matchPlaceholder(text, position))
        {
            out += htmlEncode(myEnvironment.placeholderValue(placeholder->kind, placeholder->name));
            return position + placeholder->length;
        }
        out += '&';
        return position + 1;
    }

    size_t handleAngle(std::string_view text, size_t position, std::string& out, int nesting)
    {
        bool closing = position + 1 < text.size() && text[position + 1] == '/';
        size_t nameStart = position + (closing ? 2 : 1);
        size_t nameEnd = nameStart;
        if (nameEnd < text.size() && isNameStart(text[nameEnd]))
            while (nameEnd < text.size() && isNameCharacter(text[nameEnd]))
                ++nameEnd;
        std::string_view name = text.substr(nameStart, nameEnd - nameStart);
        if (name.empty())
        {
            out += '<';
            return position + 1;
        }
        if (equalsIgnoringCase(name, kDoNotProcess))
            return handleDoNotProcess(text, position, closing, out);
        if (equalsIgnoringCase(name, kShowIf))
            return handleShowIf(text, position, nameEnd, closing, out, nesting);
        std::optional<TagShape> shape = myEnvironment.tagShape(name);
        if (!shape)
        {
            out += '<';
            return position + 1;
        }
        size_t tagEnd = findTagEnd(text, nameEnd);
        if (tagEnd == std::string_view::npos)
        {
            out += '<';
            return position + 1;
        }
        if (closing)
            return tagEnd + 1; // a stray end tag of a module tag is dropped

        bool selfClosing = text[tagEnd - 1] == '/';
        std::string_view attributeText = text.substr(nameEnd, tagEnd - nameEnd - (selfClosing ? 1 : 0));
        TagInvocation tag;
        tag.name = std::string(name);
        for (auto& [attribute, value] : parseTagAttributes(attributeText))
            tag.parameters.emplace_back(attribute, expandParameterValue(value, myEnvironment));

        size_t next = tagEnd + 1;
        if (shape->hasBody && !selfClosing)
        {
            if (auto end = findPairedEndTag(text, next, name))
            {
                std::string_view body = text.substr(next, end->start - next);
                bool raw = shape->rawBody || nesting >= kMaxNesting;
                tag.body = raw ? std::string(body) : render(body, nesting + 1);
                next = end->end;
            }
            else
                myEnvironment.reportPageProblem(name, "the tag has no end tag </" + std::string(name) +
                                                          ">; it was run without a body");
        }
        appendWithoutDoNotProcessMarkers(myEnvironment.runTag(tag), out);
        return next;
    }

    // <kivShowIf pageVariable="people_NextPage">...</kivShowIf>: the body is rendered only
    // when the value is neither empty nor "0", the result variables' "there is none"; with
    // value="...", only when it is exactly that ("0" for a tag's kivResult after a success).
    size_t handleShowIf(std::string_view text, size_t position, size_t nameEnd, bool closing,
                        std::string& out, int nesting)
    {
        size_t tagEnd = findTagEnd(text, nameEnd);
        if (tagEnd == std::string_view::npos)
        {
            out += '<';
            return position + 1;
        }
        if (closing)
            return tagEnd + 1; // stray end tag: removed
        auto end = findPairedEndTag(text, tagEnd + 1, kShowIf);
        if (!end)
        {
            myEnvironment.reportPageProblem(kShowIf, "the tag has no end tag </kivShowIf>; it was removed");
            return tagEnd + 1;
        }
        if (showIfConditionHolds(text.substr(nameEnd, tagEnd - nameEnd)) && nesting < kMaxNesting)
            out += render(text.substr(tagEnd + 1, end->start - tagEnd - 1), nesting + 1);
        return end->end;
    }

    bool showIfConditionHolds(std::string_view attributeText)
    {
        static const std::pair<std::string_view, PlaceholderKind> sources[] = {
            {"pageVariable", PlaceholderKind::PageVariable},
            {"pathArgument", PlaceholderKind::PathArgument},
            {"postArgument", PlaceholderKind::PostArgument},
        };
        NameValueList attributes = parseTagAttributes(attributeText);
        const std::string* wanted = nullptr;
        for (const auto& [attribute, value] : attributes)
            if (equalsIgnoringCase(attribute, "value"))
                wanted = &value;
        for (const auto& [attribute, name] : attributes)
            for (const auto& [sourceName, kind] : sources)
                if (equalsIgnoringCase(attribute, sourceName))
                {
                    std::string value = myEnvironment.placeholderValue(kind, htmlDecode(name));
                    return wanted ? value == htmlDecode(*wanted) : !value.empty() && value != "0";
                }
        myEnvironment.reportPageProblem(kShowIf,
                                        "the tag names no pageVariable, pathArgument or postArgument");
        return false;
    }

    size_t handleDoNotProcess(std::string_view text, size_t position, bool closing, std::string& out)
    {
        size_t tagEnd = text.find('>', position);
        if (tagEnd == std::string_view::npos)
        {
            out += '<';
            return position + 1;
        }
        if (closing)
            return tagEnd + 1; // stray marker: removed
        auto end = findPairedEndTag(text, tagEnd + 1, kDoNotProcess);
        size_t bodyEnd = end ? end->start : text.size();
        appendWithoutDoNotProcessMarkers(text.substr(tagEnd + 1, bodyEnd - tagEnd - 1), out);
        return end ? end->end : text.size();
    }

    PageEnvironment& myEnvironment;
};

} // namespace

std::string renderPage(std::string_view page, PageEnvironment& environment)
{
    return Renderer(environment).render(page, 0);
}

std::string substitutePlaceholders(std::string_view text, PageEnvironment& environment, bool encodeValues)
{
    std::string out;
    size_t position = 0;
    while (position < text.size())
    {
        size_t ampersand = text.find('&', position);
        if (ampersand == std::string_view::npos)
        {
            out.append(text.substr(position));
            break;
        }
        out.append(text.substr(position, ampersand - position));
        if (auto placeholder = matchPlaceholder(text, ampersand))
        {
            std::string value = environment.placeholderValue(placeholder->kind, placeholder->name);
            out += encodeValues ? htmlEncode(value) : value;
            position = ampersand + placeholder->length;
        }
        else
        {
            out += '&';
            position = ampersand + 1;
        }
    }
    return out;
}

NameValueList parseTagAttributes(std::string_view text)
{
    NameValueList attributes;
    size_t i = 0;
    while (i < text.size())
    {
        while (i < text.size() && (isSpace(text[i]) || text[i] == '/'))
            ++i;
        size_t nameStart = i;
        while (i < text.size() && !isSpace(text[i]) && text[i] != '=' && text[i] != '/')
            ++i;
        if (i == nameStart)
        {
            ++i;
            continue;
        }
        std::string name(text.substr(nameStart, i - nameStart));
        while (i < text.size() && isSpace(text[i]))
            ++i;
        std::string value;
        if (i < text.size() && text[i] == '=')
        {
            ++i;
            while (i < text.size() && isSpace(text[i]))
                ++i;
            if (i < text.size() && (text[i] == '"' || text[i] == '\''))
            {
                char quote = text[i++];
                size_t close = text.find(quote, i);
                if (close == std::string_view::npos)
                    close = text.size();
                value = std::string(text.substr(i, close - i));
                i = close + 1;
            }
            else
            {
                size_t valueStart = i;
                while (i < text.size() && !isSpace(text[i]))
                    ++i;
                value = std::string(text.substr(valueStart, i - valueStart));
            }
        }
        attributes.emplace_back(std::move(name), std::move(value));
    }
    return attributes;
}

std::string expandParameterValue(std::string_view written, PageEnvironment& environment)
{
    std::string out;
    size_t position = 0;
    while (position < written.size())
    {
        size_t ampersand = written.find('&', position);
        if (ampersand == std::string_view::npos)
        {
            out += htmlDecode(written.substr(position));
            break;
        }
        out += htmlDecode(written.substr(position, ampersand - position));
        if (auto placeholder = matchPlaceholder(written, ampersand))
        {
            out += environment.placeholderValue(placeholder->kind, placeholder->name);
            position = ampersand + placeholder->length;
            continue;
        }
        // A character reference: decode it alone so that a placeholder after it stays intact.
        size_t semicolon = written.find(';', ampersand);
        size_t next = written.find('&', ampersand + 1);
        if (semicolon != std::string_view::npos && (next == std::string_view::npos || semicolon < next))
        {
            out += htmlDecode(written.substr(ampersand, semicolon - ampersand + 1));
            position = semicolon + 1;
        }
        else
        {
            out += '&';
            position = ampersand + 1;
        }
    }
    return out;
}

std::string removeDoNotProcessMarkers(std::string_view text)
{
    std::string out;
    appendWithoutDoNotProcessMarkers(text, out);
    return out;
}

void appendWithoutDoNotProcessMarkers(std::string_view text, std::string& out)
{
    size_t position = 0;
    while (true)
    {
        size_t marker = findIgnoringCase(text, "kivDoNotProcess", position);
        if (marker == std::string_view::npos)
        {
            out.append(text.substr(position));
            return;
        }
        size_t open = marker;
        if (open >= 1 && text[open - 1] == '<')
            open -= 1;
        else if (open >= 2 && text[open - 1] == '/' && text[open - 2] == '<')
            open -= 2;
        size_t close = marker + kDoNotProcess.size();
        while (close < text.size() && isSpace(text[close]))
            ++close;
        if (open == marker || close >= text.size() || text[close] != '>')
        {
            out.append(text.substr(position, close - position));
            position = close;
            continue;
        }
        out.append(text.substr(position, open - position));
        position = close + 1;
    }
}

} // namespace kiv
