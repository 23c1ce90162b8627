#include "tools/gen.h"
#include "tools/gen_example.h"
#include "tools/output.h"
#include "tools/utf8.h"

#include <cctype>
#include <memory>

namespace tav {
namespace tool {

namespace kinds = pml::field_type;

namespace {

/// The bytes of a line of an example.
constexpr std::size_t bytesOfLine = 16;

/// A piece of a line: plain text, or a name in the letters of code, which may lead to a heading.
struct Span {
    std::string text;
    bool code = false;
    std::string target;
};

typedef std::vector<Span> Line;

/// A page that is written from its top to its end.
class Page {
public:
    Page() = default;
    virtual ~Page() = default;
    Page(Page const &) = delete;
    Page & operator=(Page const &) = delete;

    virtual void begin(std::string const & title) = 0;
    virtual void heading(std::string const & text, std::string const & anchor) = 0;
    virtual void paragraph(Line const & line) = 0;
    virtual void table(std::vector<std::string> const & head,
                       std::vector<std::vector<Line>> const & rows) = 0;
    virtual void code(std::string const & language, std::string const & text) = 0;
    virtual std::string end() = 0;
};

/// For a comment, which `--` might end.
std::string inComment(std::string text) {
    for (std::size_t at = text.find("--"); at != std::string::npos; at = text.find("--")) {
        text.replace(at, 2, "-");
    }
    return text;
}

class MarkdownPage : public Page {
public:
    void begin(std::string const & title) override {
        text_ = std::string("<!-- ") + generatedMark + " markdown from " + inComment(title) +
                ": changes here are lost. -->\n# " + escaped(title) + "\n";
    }
    void heading(std::string const & text, std::string const & anchor) override {
        text_ += "\n<a id=\"" + anchor + "\"></a>\n\n## " + escaped(text) + "\n";
    }
    void paragraph(Line const & line) override { text_ += "\n" + of(line) + "\n"; }
    void table(std::vector<std::string> const & head, std::vector<std::vector<Line>> const & rows) override {
        std::string top = "|";
        std::string rule = "|";
        for (std::string const & cell : head) {
            top += " " + cell + " |";
            rule += "---|";
        }
        text_ += "\n" + top + "\n" + rule + "\n";
        for (std::vector<Line> const & row : rows) {
            text_ += "|";
            for (Line const & cell : row) {
                std::string const content = of(cell);
                text_ += content.empty() ? " |" : " " + content + " |";
            }
            text_ += "\n";
        }
    }
    void code(std::string const & language, std::string const & text) override {
        text_ += "\n```" + language + "\n" + text + "\n```\n";
    }
    std::string end() override { return std::move(text_); }

private:
    static std::string escaped(std::string const & text) {
        std::string result;
        for (char const c : text) {
            result += std::string_view("\\`*_{}[]<>#|&~").find(c) != std::string_view::npos ? "\\" : "";
            result += static_cast<unsigned char>(c) < 32 ? ' ' : c;
        }
        return result;
    }
    /// Between more backticks than it has in it; a bar would end the cell.
    static std::string coded(std::string const & text) {
        std::string content;
        std::string ticks = "`";
        for (char const c : text) {
            content += c == '|' ? "\\|" : std::string(1, static_cast<unsigned char>(c) < 32 ? ' ' : c);
        }
        while (content.find(ticks) != std::string::npos) {
            ticks += "`";
        }
        std::string const blank = ticks.size() > 1 ? " " : "";
        return content.empty() ? "" : ticks + blank + content + blank + ticks;
    }
    static std::string of(Line const & line) {
        std::string text;
        for (Span const & span : line) {
            std::string const shown = span.code ? coded(span.text) : escaped(span.text);
            text += span.target.empty() ? shown : "[" + shown + "](#" + span.target + ")";
        }
        return text;
    }

    std::string text_;
};

class HtmlPage : public Page {
public:
    void begin(std::string const & title) override {
        text_ = std::string("<!DOCTYPE html>\n<!-- ") + generatedMark + " html from " +
                escaped(inComment(title)) +
                ": changes here are lost. -->\n"
                "<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>" +
                escaped(title) +
                "</title>\n<style>\n"
                "body { font-family: sans-serif; max-width: 60em; margin: 2em auto; padding: 0 1em; }\n"
                "table { border-collapse: collapse; }\n"
                "th, td { border: 1px solid #999; padding: 0.2em 0.6em; text-align: left; }\n"
                "pre { background: #eee; padding: 0.6em; overflow-x: auto; }\n"
                "</style>\n</head>\n<body>\n<h1>" +
                escaped(title) + "</h1>\n";
    }
    void heading(std::string const & text, std::string const & anchor) override {
        text_ += "<h2 id=\"" + anchor + "\">" + escaped(text) + "</h2>\n";
    }
    void paragraph(Line const & line) override { text_ += "<p>" + of(line) + "</p>\n"; }
    void table(std::vector<std::string> const & head, std::vector<std::vector<Line>> const & rows) override {
        text_ += "<table>\n<tr>";
        for (std::string const & cell : head) {
            text_ += "<th>" + escaped(cell) + "</th>";
        }
        text_ += "</tr>\n";
        for (std::vector<Line> const & row : rows) {
            text_ += "<tr>";
            for (Line const & cell : row) {
                text_ += "<td>" + of(cell) + "</td>";
            }
            text_ += "</tr>\n";
        }
        text_ += "</table>\n";
    }
    void code(std::string const &, std::string const & text) override {
        text_ += "<pre><code>" + escaped(text) + "</code></pre>\n";
    }
    std::string end() override { return text_ + "</body>\n</html>\n"; }

private:
    static std::string escaped(std::string_view text) {
        std::string result;
        while (!text.empty()) {
            std::size_t const size = utf8Character(text);
            char const c = text.front();
            bool const control = static_cast<unsigned char>(c) < 32 && c != '\n';
            result += size == 0   ? "\xEF\xBF\xBD"
                      : c == '&'  ? "&amp;"
                      : c == '<'  ? "&lt;"
                      : c == '>'  ? "&gt;"
                      : c == '"'  ? "&quot;"
                      : c == '\'' ? "&#39;"
                      : control   ? " "
                                  : std::string(text.substr(0, size));
            text.remove_prefix(size == 0 ? 1 : size);
        }
        return result;
    }
    static std::string of(Line const & line) {
        std::string text;
        for (Span const & span : line) {
            std::string const shown =
                span.code ? "<code>" + escaped(span.text) + "</code>" : escaped(span.text);
            text += span.target.empty() ? shown : "<a href=\"#" + span.target + "\">" + shown + "</a>";
        }
        return text;
    }

    std::string text_;
};

/// What an address may hold.
std::string anchorOf(char const * front, std::size_t index, std::string const & name) {
    std::string anchor = front;
    for (char const c : name) {
        auto const byte = static_cast<unsigned char>(c);
        anchor += byte < 128 && std::isalnum(byte) != 0 ? c : '-';
    }
    return anchor + "-" + std::to_string(index + 1);
}

class PageWriter {
public:
    PageWriter(GenModel const & model, Page & page) : model_(model), examples_(model), page_(page) {}

    std::string write();

private:
    void contents();
    void writeClass(std::size_t index);
    void writeEnum(std::size_t index);
    Line typeOf(GenField const & field) const;
    Span valueOf(GenField const & field) const;
    Line notesOf(GenField const & field) const;
    std::string anchorOfClass(std::size_t index) const {
        return anchorOf("class-", index, model_.classes[index].name);
    }
    Span linkTo(std::size_t cls) const { return Span{model_.classes[cls].name, true, anchorOfClass(cls)}; }

    GenModel const & model_;
    GenExamples const examples_;
    Page & page_;
};

std::string PageWriter::write() {
    page_.begin(model_.title());
    contents();
    for (std::size_t i = 0; i < model_.classes.size(); ++i) {
        writeClass(i);
    }
    for (std::size_t i = 0; i < model_.enums.size(); ++i) {
        writeEnum(i);
    }
    return page_.end();
}

void PageWriter::contents() {
    std::vector<std::vector<Line>> rows;
    for (std::size_t i = 0; i < model_.classes.size(); ++i) {
        GenClass const & cls = model_.classes[i];
        Line const code = cls.hasCode ? Line{Span{codeText(cls.code), true, ""}} : Line();
        rows.push_back({{linkTo(i)}, code});
    }
    page_.table({"class", "code"}, rows);
}

Span PageWriter::valueOf(GenField const & field) const {
    if (field.cls != none) {
        return linkTo(field.cls);
    }
    if (field.enumeration != none) {
        GenEnum const & e = model_.enums[field.enumeration];
        return Span{e.name, true, anchorOf("enum-", field.enumeration, e.name)};
    }
    return Span{kindName(field.valueKind()), true, ""};
}

Line PageWriter::typeOf(GenField const & field) const {
    Line line;
    if (field.kind == kinds::map_) {
        line.push_back(Span{"map of ", false, ""});
        line.push_back(Span{kindName(field.key), true, ""});
        line.push_back(Span{" to ", false, ""});
    } else if (field.isContainer()) {
        line.push_back(Span{"list of ", false, ""});
    }
    line.push_back(valueOf(field));
    return line;
}

Line PageWriter::notesOf(GenField const & field) const {
    Line line;
    auto const add = [&line](std::string const & text, std::string const & code) {
        line.push_back(Span{(line.empty() ? "" : "; ") + text, false, ""});
        if (!code.empty()) {
            line.push_back(Span{code, true, ""});
        }
    };
    if (field.optional) {
        add("may be left out", "");
    }
    if (!field.preset.empty()) {
        add("default ", field.preset);
    }
    if (!field.range.empty()) {
        add("from ", field.range);
    }
    if (field.isProtected) {
        add("masked in logs", "");
    }
    if (!field.comment.empty()) {
        add(field.comment, "");
    }
    return line;
}

std::string linesOf(std::string const & bytes) {
    std::string text;
    for (std::size_t at = 0; at < bytes.size(); at += bytesOfLine) {
        text += (text.empty() ? "" : "\n") + hexText(std::string_view(bytes).substr(at, bytesOfLine));
    }
    return text;
}

void PageWriter::writeClass(std::size_t index) {
    GenClass const & cls = model_.classes[index];
    page_.heading(cls.name, anchorOfClass(index));
    Line what = {Span{cls.hasCode ? "A message of the code " : "An object within messages", false, ""}};
    if (cls.hasCode) {
        what.push_back(Span{codeText(cls.code), true, ""});
    }
    if (cls.base != none) {
        what.push_back(Span{", with the fields of ", false, ""});
        what.push_back(linkTo(cls.base));
    }
    what.push_back(Span{".", false, ""});
    page_.paragraph(what);
    std::vector<std::vector<Line>> rows;
    for (GenField const & field : cls.fields) {
        rows.push_back({{Span{std::to_string(field.tag), false, ""}},
                        {Span{field.name, true, ""}},
                        typeOf(field),
                        notesOf(field)});
    }
    if (!rows.empty()) {
        page_.table({"tag", "field", "type", "notes"}, rows);
    }
    GenExample const example = examples_.of(index);
    page_.code("json", example.json);
    page_.code("text", linesOf(example.bytes));
}

void PageWriter::writeEnum(std::size_t index) {
    GenEnum const & e = model_.enums[index];
    page_.heading(e.name, anchorOf("enum-", index, e.name));
    page_.paragraph({Span{"An enum, which travels as a number.", false, ""}});
    std::vector<std::vector<Line>> rows;
    for (GenEnum::Member const & member : e.members) {
        rows.push_back({{Span{std::to_string(member.number), false, ""}}, {Span{member.name, true, ""}}});
    }
    page_.table({"number", "name"}, rows);
}

} // namespace

Generated markdownOf(GenModel const & model) {
    MarkdownPage page;
    return Generated{PageWriter(model, page).write(), {}};
}

Generated htmlOf(GenModel const & model) {
    HtmlPage page;
    return Generated{PageWriter(model, page).write(), {}};
}

} // namespace tool
} // namespace tav
