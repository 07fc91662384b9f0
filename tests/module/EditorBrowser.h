// A small browser for the editor's tests: it sends one kivEditDatabase request through the
// module's entry, checks that the page is wrapped and well formed, reads the forms on it and
// submits one of them the way a browser would (hidden, text and checked inputs, text areas,
// selected options, the clicked button), so that each step feeds the next.
#ifndef KIV_TEST_EDITOR_BROWSER_H
#define KIV_TEST_EDITOR_BROWSER_H

#include "DatabaseModule.h"
#include "FakeDatabase.h"
#include "FakeHost.h"

#include <gtest/gtest.h>

#include <cctype>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace kivtest
{

constexpr const char* kEditorScript = "/admin/edit.kiv";
constexpr const char* kEditorOpen = "\r\n<kivDoNotProcess>\r\n";
constexpr const char* kEditorClose = "\r\n</kivDoNotProcess>\r\n";

// Decodes the entities the module writes into attribute values and text.
inline std::string DecodeEntities(const std::string& text_i)
{
    static const std::map<std::string, char> entities = {{"amp", '&'},  {"lt", '<'},      {"gt", '>'},
                                                         {"quot", '"'}, {"nbsp", '\xA0'}, {"eacute", '\xE9'}};
    std::string decoded;
    for (size_t at = 0; at < text_i.size(); ++at)
    {
        size_t end = text_i.find(';', at);
        if (text_i[at] == '&' && end != std::string::npos)
        {
            auto entity = entities.find(text_i.substr(at + 1, end - at - 1));
            if (entity != entities.end())
            {
                decoded += entity->second;
                at = end;
                continue;
            }
        }
        decoded += text_i[at];
    }
    return decoded;
}

struct HtmlTag
{
    std::string name; // lower case, "/name" for end tags
    std::map<std::string, std::string> attributes;
    bool hasAttribute(const std::string& name_i) const { return attributes.count(name_i) != 0; }
    std::string Get(const std::string& name_i) const
    {
        auto found = attributes.find(name_i);
        return found == attributes.end() ? std::string() : found->second;
    }
};

// Elements that have no end tag (or whose end tag the module leaves to the browser).
inline bool IsVoidElement(const std::string& name_i)
{
    return name_i == "input" || name_i == "br" || name_i == "hr" || name_i == "p";
}

// Splits a page into tags and the text between them. Fails the test on markup a browser would
// read differently: a raw "<" in text, an unquoted or unterminated attribute, a stray quote.
inline std::vector<std::pair<HtmlTag, std::string>> ParseHtml(const std::string& html_i)
{
    std::vector<std::pair<HtmlTag, std::string>> items; // each tag with the text after it
    size_t at = html_i.find('<');
    EXPECT_EQ(html_i.substr(0, at).find('>'), std::string::npos) << "stray > before the first tag";
    while (at != std::string::npos && at < html_i.size())
    {
        HtmlTag tag;
        size_t cursor = at + 1;
        bool end = cursor < html_i.size() && html_i[cursor] == '/';
        if (end)
            ++cursor;
        size_t nameStart = cursor;
        while (cursor < html_i.size() && std::isalnum((unsigned char)html_i[cursor]))
            ++cursor;
        std::string name = html_i.substr(nameStart, cursor - nameStart);
        EXPECT_FALSE(name.empty()) << "raw < in text near: " << html_i.substr(at, 40);
        if (name.empty())
            return items;
        for (char& c : name)
            c = (char)std::tolower((unsigned char)c);
        tag.name = end ? "/" + name : name;
        while (true)
        {
            while (cursor < html_i.size() && std::isspace((unsigned char)html_i[cursor]))
                ++cursor;
            if (cursor >= html_i.size())
            {
                ADD_FAILURE() << "unterminated tag " << name;
                return items;
            }
            if (html_i[cursor] == '>')
                break;
            size_t attributeStart = cursor;
            while (cursor < html_i.size() &&
                   (std::isalnum((unsigned char)html_i[cursor]) || html_i[cursor] == '-'))
                ++cursor;
            std::string attribute = html_i.substr(attributeStart, cursor - attributeStart);
            if (attribute.empty())
            {
                ADD_FAILURE() << "bad character in tag " << name << ": " << html_i.substr(cursor, 20);
                return items;
            }
            std::string value;
            if (html_i[cursor] == '=')
            {
                ++cursor;
                if (html_i[cursor] != '"')
                {
                    ADD_FAILURE() << "unquoted attribute " << attribute << " in " << name;
                    return items;
                }
                size_t close = html_i.find('"', cursor + 1);
                value = html_i.substr(cursor + 1, close - cursor - 1);
                EXPECT_EQ(value.find_first_of("<>"), std::string::npos)
                    << "raw < or > in attribute " << value;
                cursor = close + 1;
            }
            tag.attributes[attribute] = DecodeEntities(value);
        }
        size_t next = html_i.find('<', cursor + 1);
        std::string text =
            html_i.substr(cursor + 1, next == std::string::npos ? std::string::npos : next - cursor - 1);
        EXPECT_EQ(text.find('>'), std::string::npos) << "stray > in text: " << text;
        items.emplace_back(tag, text);
        at = next;
    }
    return items;
}

// Every element closed in order, no form inside a form, no table cell outside a row.
inline void ExpectBalanced(const std::string& html_i)
{
    std::vector<std::string> open;
    for (const auto& item : ParseHtml(html_i))
    {
        const std::string& name = item.first.name;
        if (name[0] == '/')
        {
            std::string closed = name.substr(1);
            ASSERT_FALSE(IsVoidElement(closed)) << "end tag of a void element " << closed;
            ASSERT_FALSE(open.empty()) << "end tag " << closed << " without a start";
            ASSERT_EQ(open.back(), closed) << "end tag " << closed << " closes " << open.back();
            open.pop_back();
            continue;
        }
        if (IsVoidElement(name))
            continue;
        if (name == "form")
        {
            for (const auto& element : open)
                ASSERT_NE(element, "form") << "nested form";
        }
        if (name == "td" || name == "th")
        {
            ASSERT_TRUE(!open.empty() && open.back() == "tr") << name << " outside a row";
        }
        if (name == "tr")
        {
            ASSERT_TRUE(!open.empty() && open.back() == "table") << "row outside a table";
        }
        open.push_back(name);
    }
    EXPECT_TRUE(open.empty()) << "unclosed " << (open.empty() ? "" : open.back());
}

// One input of a form, as the browser holds it.
struct FormInput
{
    std::string type; // hidden, text, radio, checkbox, submit, textarea, select
    std::string name;
    std::string value;
    bool checked = false;
    std::vector<std::string> options; // select: option values, in order
};

struct Form
{
    std::string action;
    std::vector<FormInput> inputs;

    const FormInput* Find(const std::string& name_i, const std::string& type_i = "") const
    {
        for (const auto& input : inputs)
            if (input.name == name_i && (type_i.empty() || input.type == type_i))
                return &input;
        return nullptr;
    }
    // The values of every input of that name and type.
    std::vector<std::string> Values(const std::string& name_i, const std::string& type_i) const
    {
        std::vector<std::string> values;
        for (const auto& input : inputs)
            if (input.name == name_i && input.type == type_i)
                values.push_back(input.value);
        return values;
    }
    bool HasButton(const std::string& label_i) const
    {
        for (const auto& input : inputs)
            if (input.type == "submit" && input.value == label_i)
                return true;
        return false;
    }
    std::vector<std::string> Buttons() const
    {
        std::vector<std::string> labels;
        for (const auto& input : inputs)
            if (input.type == "submit")
                labels.push_back(input.value);
        return labels;
    }
};

inline std::vector<Form> ReadForms(const std::string& html_i)
{
    std::vector<Form> forms;
    Form* form = nullptr;
    FormInput* open = nullptr; // the textarea or select being read
    for (const auto& item : ParseHtml(html_i))
    {
        const HtmlTag& tag = item.first;
        if (tag.name == "form")
        {
            forms.emplace_back();
            form = &forms.back();
            form->action = tag.Get("action");
        }
        else if (tag.name == "/form")
            form = nullptr;
        if (form == nullptr)
            continue;
        if (tag.name == "input")
        {
            FormInput input;
            input.type = tag.Get("type");
            input.name = tag.Get("name");
            input.value = tag.Get("value");
            input.checked = tag.hasAttribute("checked");
            form->inputs.push_back(input);
        }
        else if (tag.name == "textarea")
        {
            form->inputs.push_back({"textarea", tag.Get("name"), DecodeEntities(item.second), false, {}});
            open = &form->inputs.back();
        }
        else if (tag.name == "select")
        {
            form->inputs.push_back({"select", tag.Get("name"), "", false, {}});
            open = &form->inputs.back();
        }
        else if (tag.name == "option" && open != nullptr)
        {
            open->options.push_back(tag.Get("value"));
            if (open->value.empty() || tag.hasAttribute("selected"))
                open->value = tag.Get("value");
        }
        else if (tag.name == "/textarea" || tag.name == "/select")
            open = nullptr;
    }
    return forms;
}

// The kivEditDatabase tag on one page, driven request after request.
class EditorSession
{
public:
    FakeHost host;
    std::string page;    // the module's output for the last request
    uint32_t result = 0; // its result code
    std::vector<Form> forms;

    explicit EditorSession(uint32_t language_i = kKivHostLanguage_English)
    {
        host.defaultLanguage = language_i;
        host.tagName = "kivEditDatabase";
        host.cgiVariables["SCRIPT_NAME"] = kEditorScript;
        // The editor's open makes the database it names, with the identifier field the page
        // asks for, as the host does for this tag.
        host.db.search = SearchByCriteria;
        FakeHost* fake = &host;
        host.databaseHandler = [fake](FakeDBRequest& request_io) -> uint32_t
        {
            if (request_io.Selector() == kKivDB_OpenDatabase && !fake->db.Find(request_io.call.text))
                fake->db.AddDatabase(request_io.call.text,
                                     {{request_io.call.text2.empty() ? "KIVIDFIELD" : request_io.call.text2,
                                       kUniqueIDField | kKivFieldFlag_Indexed}});
            // A deleted record leaves the cursor at its place, so that moving on reaches the
            // record that followed it.
            FakeDatabase* database = fake->db.ByHandle(request_io.call);
            long position = database ? database->position : -1;
            uint32_t result = fake->db.Handle(request_io);
            if (request_io.Selector() == kKivDB_DeleteRecord && result == 0 && database)
            {
                database->results = database->AllRecords();
                database->searched = true;
                database->position = position - 1;
            }
            return result;
        };
        host.Request(ProcessKivRequest, kKivRequest_Initialize);
    }
    ~EditorSession() { host.Request(ProcessKivRequest, kKivRequest_Terminate); }

    // Sends one request with these post arguments; checks the page.
    void Post(const std::vector<std::pair<std::string, std::string>>& arguments_i)
    {
        host.postArguments.items = arguments_i;
        host.output.clear();
        host.errorHeadline.clear();
        host.errorHint.clear();
        result = host.Request(ProcessKivRequest, kKivRequest_ProcessTag);
        page = host.output;
        ExpectWrapped();
        std::string body = Body();
        ExpectBalanced(body);
        forms = ReadForms(body);
        for (const auto& form : forms)
            EXPECT_EQ(form.action, kEditorScript);
    }

    void ExpectWrapped() const
    {
        const std::string open(kEditorOpen), close(kEditorClose);
        ASSERT_GE(page.size(), open.size() + close.size()) << page;
        EXPECT_EQ(page.substr(0, open.size()), open);
        EXPECT_EQ(page.substr(page.size() - close.size()), close);
    }
    std::string Body() const
    {
        const std::string open(kEditorOpen), close(kEditorClose);
        if (page.size() < open.size() + close.size())
            return std::string();
        return page.substr(open.size(), page.size() - open.size() - close.size());
    }
    bool Shows(const std::string& text_i) const { return page.find(text_i) != std::string::npos; }

    // The form that holds a submit button with this label.
    const Form& FormWithButton(const std::string& label_i) const
    {
        for (const auto& form : forms)
            if (form.HasButton(label_i))
                return form;
        ADD_FAILURE() << "no button " << label_i << " on the page:\n" << page;
        static Form empty;
        return empty;
    }

    // Submits the form holding the button, as the browser would: `changes_i` set what the user
    // typed or chose (a radio or checkbox by "name=value" checks it; a name with several
    // values posts them all).
    void Click(const std::string& label_i,
               const std::vector<std::pair<std::string, std::string>>& changes_i = {},
               const std::string& buttonName_i = "kivEditDatabase_Action")
    {
        Form form = FormWithButton(label_i);
        std::vector<std::pair<std::string, std::string>> posted;
        auto changed = [&](const FormInput& input_i, std::string& value_io) -> int
        {
            // 1: post this value; 0: do not post; -1: no change for this input.
            int decision = -1;
            for (const auto& change : changes_i)
                if (change.first == input_i.name)
                {
                    if (input_i.type == "radio" || input_i.type == "checkbox")
                    {
                        if (change.second == input_i.value)
                            return 1;
                        decision = input_i.type == "radio" ? 0 : decision;
                    }
                    else
                    {
                        value_io = change.second;
                        return 1;
                    }
                }
            return decision;
        };
        for (const auto& input : form.inputs)
        {
            std::string value = input.value;
            if (input.type == "submit")
            {
                if (input.name == buttonName_i && input.value == label_i)
                    posted.emplace_back(input.name, input.value);
                continue;
            }
            int decision = changed(input, value);
            if (input.type == "radio" || input.type == "checkbox")
            {
                if (decision == 1 || (decision == -1 && input.checked))
                    posted.emplace_back(input.name, value);
                continue;
            }
            posted.emplace_back(input.name, value);
        }
        Post(posted);
    }
};

} // namespace kivtest

#endif
