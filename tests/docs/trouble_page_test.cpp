#include "docs/said_texts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace {

/// A row of the page's tables.
struct Row {
    int line;
    std::string module;             ///< In the section's heading; empty for the texts of others.
    std::vector<std::string> texts; ///< In the first column.
    std::vector<std::string> cells;
};

std::vector<std::string> cellsOf(std::string const & line) {
    std::vector<std::string> cells;
    for (std::size_t at = 1; at < line.size();) {
        std::size_t const end = std::min(line.find('|', at), line.size());
        std::string cell = line.substr(at, end - at);
        cell.erase(0, cell.find_first_not_of(' '));
        cell.erase(cell.find_last_not_of(' ') + 1);
        cells.push_back(cell);
        at = end + 1;
    }
    return cells;
}

std::vector<std::string> spansOf(std::string const & cell) {
    static std::regex const span("`([^`]*)`");
    std::vector<std::string> spans;
    for (std::sregex_iterator it(cell.begin(), cell.end(), span), end; it != end; ++it) {
        spans.push_back((*it)[1]);
    }
    return spans;
}

std::vector<Row> rowsOf(std::istream & page) {
    static std::regex const heading("## .*\\(`([a-z/]+)`\\)");
    std::vector<Row> rows;
    std::string module;
    int number = 0;
    for (std::string line; std::getline(page, line);) {
        ++number;
        std::smatch found;
        if (line.rfind("## ", 0) == 0) {
            module = std::regex_match(line, found, heading) ? found[1].str() : std::string();
        } else if (line.rfind("| `", 0) == 0) {
            std::vector<std::string> const cells = cellsOf(line);
            rows.push_back({number, module, spansOf(cells.at(0)), cells});
        }
    }
    return rows;
}

std::vector<Row> const & page() {
    static std::vector<Row> const rows = [] {
        std::ifstream in(TAV_SOURCE_DIR "/docs/trouble.md");
        return rowsOf(in);
    }();
    return rows;
}

std::vector<said::Text> const & sources() {
    static std::vector<said::Text> const texts = said::textsOf(TAV_SOURCE_DIR);
    return texts;
}

/// What stands between the places that are filled in at run time.
std::vector<std::string> piecesOf(std::string const & text) {
    static std::regex const place("\xe2\x80\xb9[^\xe2]*\xe2\x80\xba");
    std::vector<std::string> pieces(std::sregex_token_iterator(text.begin(), text.end(), place, -1),
                                    std::sregex_token_iterator());
    for (std::string & piece : pieces) {
        piece.erase(0, std::min(piece.find_first_not_of(' '), piece.size()));
        piece.erase(piece.find_last_not_of(' ') + 1);
    }
    pieces.erase(std::remove(pieces.begin(), pieces.end(), std::string()), pieces.end());
    return pieces;
}

bool isOn(std::vector<Row> const & rows, said::Text const & text) {
    std::string const module = said::moduleOf(text.file);
    return std::any_of(rows.begin(), rows.end(), [&](Row const & row) {
        return (row.module == module || module.empty()) &&
               std::any_of(row.texts.begin(), row.texts.end(), [&](std::string const & shown) {
                   return shown.find(text.text) != std::string::npos;
               });
    });
}

/// The texts that the page lacks, a line for each.
std::string missing(std::vector<Row> const & rows, std::vector<said::Text> const & texts) {
    std::string out;
    for (said::Text const & text : texts) {
        if (!isOn(rows, text)) {
            out += text.file + ":" + std::to_string(text.line) + ": docs/trouble.md, section `" +
                   said::moduleOf(text.file) + "`, lacks \"" + text.text + "\"\n";
        }
    }
    return out;
}

} // namespace

TEST(TroublePage, HasEveryTextThatTheLibraryCanSay) {
    EXPECT_GT(sources().size(), 200u);
    EXPECT_EQ(missing(page(), sources()), "");
}

TEST(TroublePage, SaysNothingThatTheLibraryDoesNot) {
    for (Row const & row : page()) {
        for (std::string const & text : row.texts) {
            std::vector<std::string> const pieces = piecesOf(text);
            bool const known =
                row.module.empty() ||
                std::any_of(sources().begin(), sources().end(), [&](said::Text const & each) {
                    std::string const module = said::moduleOf(each.file);
                    return (module == row.module || module.empty()) &&
                           std::any_of(pieces.begin(), pieces.end(), [&](std::string const & piece) {
                               return each.text.find(piece) != std::string::npos ||
                                      piece.find(each.text) != std::string::npos;
                           });
                });
            EXPECT_TRUE(known) << "docs/trouble.md:" << row.line << ": nobody in " << row.module << " says "
                               << text;
        }
    }
}

TEST(TroublePage, HasACauseAndARemedyInEachRow) {
    ASSERT_GT(page().size(), 100u);
    for (Row const & row : page()) {
        ASSERT_EQ(row.cells.size(), 3u) << "docs/trouble.md:" << row.line;
        EXPECT_FALSE(row.cells[1].empty() || row.cells[2].empty()) << "docs/trouble.md:" << row.line;
    }
}

TEST(TroublePage, LacksATextOfPythonThatIsNew) {
    auto const lacks = [](char const * source) {
        return missing(page(), said::textsInPython("bindings/python/tav_im/_new.py", source));
    };
    EXPECT_NE(lacks("    raise ValueError(\"the moon is full\")\n"), "");
    EXPECT_NE(lacks("    raise ImportError(\n        _NAME + \"the moon is full\"\n    )\n"), "");
    EXPECT_NE(lacks("    _log.exception(\"the moon is full\")\n"), "");
    EXPECT_NE(lacks("    warnings.warn(f\"the moon {name!r} is full\", ResourceWarning)\n"), "");
    EXPECT_NE(lacks("    return {\"name\": \"other\", \"text\": f\"the moon is {phase}\"}\n"), "");
    EXPECT_EQ(lacks("    text = \"the moon is full\"\n"), "");
    EXPECT_EQ(lacks("    raise ValueError(\"most_waiting has to be 1 at least\")\n"), "");
}

TEST(TroublePage, LacksATextThatIsNew) {
    auto const lacks = [](char const * source) {
        return missing(page(), said::textsIn("src/client/new.cpp", source));
    };
    EXPECT_NE(lacks("void f() {\n    log_parts(tavLogger::WARN, site, name_, \" the moon is full\");\n}\n"),
              "");
    EXPECT_NE(lacks("void f() {\n    throw std::runtime_error(\"the moon \"\n        \"is full\");\n}\n"),
              "");
    EXPECT_NE(lacks("void f() {\n    refuse(option + \": the moon is full\");\n}\n"), "");
    EXPECT_NE(lacks("void f(int a) {\n    std::string const text = \"the moon is full\";\n    if (a) {\n"
                    "        raise(here(\"f\"), text);\n    }\n}\n"),
              "");
    EXPECT_NE(lacks("void f() {\n    detail::log(tag, tavLogger::ERROR, site,\n"
                    "                [&](std::ostream & out) { out << \"the moon is \" << full; });\n}\n"),
              "");
    EXPECT_NE(lacks("void f() {\n    tell_error(era, told, code, \"the moon is full\");\n}\n"), "");
    EXPECT_EQ(lacks("void f() {\n    log_parts(tavLogger::INFO, site, name_, \" the moon is full\");\n}\n"),
              "");
    EXPECT_EQ(lacks("// throw \"the moon is full\"\nchar const * moon = \"is full\";\n"), "");
    EXPECT_EQ(lacks("void f() {\n    log_parts(tavLogger::ERROR, site, name_, \" host is empty\");\n}\n"),
              "");
}
