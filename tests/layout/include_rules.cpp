#include "layout/include_rules.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string_view>

namespace layout {
namespace {

using Names = std::set<std::string, std::less<>>;

/// What each folder of src/ may include besides itself.
std::map<std::string, Names, std::less<>> const & table() {
    static Names const formats = {"formats/nbr", "formats/json", "formats/pml", "formats/xml"};
    auto const with = [](Names names, Names const & more) {
        names.insert(more.begin(), more.end());
        return names;
    };
    static std::map<std::string, Names, std::less<>> const rows = {
        {"foundation", {}},
        {"runtime", {"foundation"}},
        {"codec", {"foundation"}},
        {"formats/nbr", {"foundation", "codec"}},
        {"formats/json", {"foundation", "codec"}},
        {"formats/pml", {"foundation", "codec"}},
        {"formats/xml", {"foundation", "codec"}},
        {"log", {"foundation", "runtime", "codec", "formats/pml"}},
        {"object", with({"foundation", "codec"}, formats)},
        {"model", with({"foundation", "codec", "object"}, formats)},
        {"packet", {"foundation", "codec", "object", "formats/nbr"}},
        {"client",
         {"foundation", "runtime", "codec", "formats/nbr", "formats/pml", "log", "object", "model",
          "packet"}},
    };
    return rows;
}

/// The folder that each public header belongs to; "umbrella" for those that only collect others.
std::map<std::string, std::string, std::less<>> const & publicHeaders() {
    static std::map<std::string, std::string, std::less<>> const rows = {
        {"tav/vinta/vinta.h", "umbrella"},
        {"tav/vinta/vinta_c.h", "umbrella"},
        {"tav/vinta/vinta_basetypes.h", "umbrella"},
        {"tav/vinta/vinta_api.h", "foundation"},
        {"tav/vinta/vinta_basetypes_bytes.h", "foundation"},
        {"tav/vinta/vinta_basetypes_containers.h", "foundation"},
        {"tav/vinta/vinta_basetypes_cstr.h", "foundation"},
        {"tav/vinta/vinta_basetypes_failures.h", "foundation"},
        {"tav/vinta/vinta_basetypes_process.h", "foundation"},
        {"tav/vinta/vinta_basetypes_text.h", "foundation"},
        {"tav/vinta/vinta_basetypes_time.h", "foundation"},
        {"tav/vinta/vinta_basetypes_util.h", "foundation"},
        {"tav/vinta/vinta_locks.h", "foundation"},
        {"tav/vinta/vinta_log.h", "foundation"},
        {"tav/vinta/vinta_log_c.h", "foundation"},
        {"tav/vinta/vinta_mt_thread.h", "runtime"},
        {"tav/vinta/vinta_basetypes_codec.h", "codec"},
        {"tav/vinta/vinta_nbr_write.h", "codec"},
        {"tav/vinta/vinta_object_fields.h", "codec"},
        {"tav/vinta/vinta_nbr_compactreader.h", "formats/nbr"},
        {"tav/vinta/vinta_nbr_unit.h", "formats/nbr"},
        {"tav/vinta/vinta_json_parser.h", "formats/json"},
        {"tav/vinta/vinta_json_streams.h", "formats/json"},
        {"tav/vinta/vinta_json_tree.h", "formats/json"},
        {"tav/vinta/vinta_pml_field_types.h", "formats/pml"},
        {"tav/vinta/vinta_pml_streams.h", "formats/pml"},
        {"tav/vinta/vinta_pml_tree.h", "formats/pml"},
        {"tav/vinta/vinta_pml_unit.h", "formats/pml"},
        {"tav/vinta/vinta_xml_node.h", "formats/xml"},
        {"tav/vinta/vinta_xml_streams.h", "formats/xml"},
        {"tav/vinta/vinta_xml_tree.h", "formats/xml"},
        {"tav/vinta/vinta_object.h", "object"},
        {"tav/vinta/vinta_json2nbr.h", "model"},
        {"tav/vinta/vinta_pml_meta.h", "model"},
        {"tav/vinta/vinta_im_pkt.h", "packet"},
        {"tav/vinta/vinta_transport_message.h", "packet"},
        {"tav/vinta/vinta_vad.h", "packet"},
        {"tav/vinta/vinta_tls_client.h", "client"},
        {"tav/vinta/vinta_tls_client_options.h", "client"},
        {"tav/vinta/vinta_tls_failure.h", "client"},
        {"tav/vinta/vinta_tls_limits.h", "client"},
        {"tav/vinta/vinta_tls_policy.h", "client"},
        {"tav/vinta/vinta_tls_statistics.h", "client"},
    };
    return rows;
}

/// What stands beside the library and is built on its public headers alone.
Names const beside = {"kit", "tools", "bindings", "gateway", "examples", "bench"};

/// Whether what stands beside the library includes what another folder beside it, or the tests, have for
/// themselves.  The tool has the gateway as one of its commands, and the benchmarks take its certificates.
bool isOfAnotherBeside(std::string_view folder, std::string_view name) {
    static Names const others = {"tools", "bindings", "gateway", "examples",
                                 "bench", "fuzz",     "tests",   "support"};
    std::string_view const top = name.substr(0, name.find('/'));
    return beside.count(folder) != 0 && top != folder && top.size() != name.size() &&
           others.count(top) != 0 && !((folder == "bench" || folder == "tools") && top == "gateway");
}

bool startsWith(std::string_view text, std::string_view front) {
    return text.substr(0, front.size()) == front;
}

/// The row of the table that a path below src/ belongs to; empty if there is none.
std::string rowOf(std::string_view path) {
    for (auto const & row : table()) {
        if (startsWith(path, row.first + "/")) {
            return row.first;
        }
    }
    return {};
}

/// The name that an include's path leads to, whichever folder it starts from.
std::string_view below(std::string_view name) {
    for (std::size_t dropped = 1; dropped != 0;) {
        dropped = 0;
        for (std::string_view const front : {"./", "../", "src/", "include/"}) {
            if (startsWith(name, front)) {
                name.remove_prefix(front.size());
                dropped = front.size();
            }
        }
    }
    return name;
}

/// The folder that a file of the tree stands for: a row, "umbrella", one of those beside the library, or
/// empty.
std::string folderOf(std::string const & path) {
    if (startsWith(path, "src/")) {
        return rowOf(path.substr(4));
    }
    if (startsWith(path, "include/tav/kit/")) {
        return "kit";
    }
    if (startsWith(path, "include/")) {
        auto const at = publicHeaders().find(path.substr(8));
        return at == publicHeaders().end() ? std::string() : at->second;
    }
    return path.substr(0, path.find('/'));
}

struct Include {
    unsigned line;
    std::string name;
};

std::vector<Include> includesOf(std::string const & text) {
    std::vector<Include> found;
    std::istringstream lines(text);
    std::string line;
    for (unsigned number = 1; std::getline(lines, line); ++number) {
        std::size_t at = line.find_first_not_of(" \t");
        if (at == std::string::npos || line[at] != '#') {
            continue;
        }
        at = line.find_first_not_of(" \t", at + 1);
        if (at == std::string::npos || line.compare(at, 7, "include") != 0) {
            continue;
        }
        std::size_t const open = line.find_first_of("<\"", at);
        std::size_t const end = open == std::string::npos ? open : line.find_first_of(">\"", open + 1);
        if (end != std::string::npos) {
            found.push_back(
                {number, std::string(below(std::string_view(line).substr(open + 1, end - open - 1)))});
        }
    }
    return found;
}

bool endsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

bool isSource(std::string_view path) {
    return endsWith(path, ".h") || endsWith(path, ".cpp") || endsWith(path, ".c");
}

bool isOfLibrary(std::string_view path) {
    return startsWith(path, "src/") || startsWith(path, "include/");
}

bool isBuildFile(std::string_view path) {
    return endsWith(path, "/CMakeLists.txt");
}

bool isOfAsioOrOpenSsl(std::string_view name) {
    return name == "asio.hpp" || startsWith(name, "asio/") || startsWith(name, "openssl/");
}

/// The C headers that every system has.
Names const standardC = {"stdbool.h", "stddef.h", "stdint.h"};

bool isOfSystem(std::string_view name) {
    // Those of the C++ library have neither.
    return name.find_first_of("./") != std::string_view::npos && !isOfAsioOrOpenSsl(name) &&
           standardC.count(name) == 0 && rowOf(name).empty() && !startsWith(name, "tav/");
}

bool mayNameSystem(std::string_view path) {
    return startsWith(path, "src/foundation/platform_");
}

/// The rule that a line of the library breaks by naming a system; empty if none.
std::string brokenByNamingSystem(std::string_view line) {
    for (std::string_view const name :
         {"__linux", "__gnu_linux", "__unix", "_WIN32", "WIN32", "_MSC_VER", "__MINGW", "__CYGWIN__",
          "__APPLE__", "__FreeBSD__", "__ANDROID__", "__GLIBC__"}) {
        if (line.find(name) != std::string_view::npos) {
            return "systems differ behind foundation/platform.h only: " + std::string(name);
        }
    }
    return {};
}

/// The rule that one include breaks; empty if none.
std::string brokenRule(std::string const & path, std::string const & folder, std::string const & name) {
    bool const ofLibrary = isOfLibrary(path);
    if (ofLibrary && isOfAsioOrOpenSsl(name)) {
        return startsWith(path, "src/client/") ? "" : "asio and OpenSSL are for src/client only: " + name;
    }
    if (folder == "fuzz" && isOfAsioOrOpenSsl(name)) {
        return "fuzz stands on the library, not on what is under it: " + name;
    }
    if (folder == "fuzz" && beside.count(name.substr(0, name.find('/'))) != 0) {
        return "fuzz stands on the library, not beside it: " + name;
    }
    if ((folder == "bindings" || folder == "examples") && isOfAsioOrOpenSsl(name)) {
        return folder + " stands on public headers alone: " + name;
    }
    if (isOfAnotherBeside(folder, name)) {
        return folder + " stands on public headers alone: " + name;
    }
    if (ofLibrary && folder != "kit" && startsWith(name, "tav/kit/")) {
        return "the library knows nothing of the kit: " + name;
    }
    if (ofLibrary && isOfSystem(name) && !mayNameSystem(path)) {
        return "systems differ behind foundation/platform.h only: " + name;
    }
    std::string const row = rowOf(name);
    if (!row.empty() && startsWith(path, "include/")) {
        return "a public header may not include what is internal: " + name;
    }
    if (!row.empty() && beside.count(folder) != 0) {
        return folder + " stands on public headers alone: " + name;
    }
    auto const header = publicHeaders().find(name);
    if (header == publicHeaders().end() && startsWith(name, "tav/") && !startsWith(name, "tav/kit/")) {
        return "a public header without a row in the table: " + name;
    }
    if (!ofLibrary || folder == "umbrella") {
        return {};
    }
    std::string const target = header == publicHeaders().end() ? row : header->second;
    if (target == "umbrella") {
        return "an umbrella header is for users: " + name;
    }
    if (folder == "kit") {
        return {};
    }
    auto const allowed = table().find(folder);
    if (target.empty() || target == folder || allowed == table().end() ||
        allowed->second.count(target) != 0) {
        return {};
    }
    return folder + " may not include " + target + ": " + name;
}

/// Which headers each header includes, by the name that is included.
using Graph = std::map<std::string, std::vector<Include>, std::less<>>;

std::string includedName(std::string const & path) {
    for (std::string_view const front : {"src/", "include/"}) {
        if (startsWith(path, front)) {
            return path.substr(front.size());
        }
    }
    return path;
}

Graph graphOf(std::vector<File> const & files) {
    Graph graph;
    for (File const & file : files) {
        graph[includedName(file.path)] = includesOf(file.text);
    }
    return graph;
}

bool reaches(Graph const & graph, std::string const & from, std::string const & to) {
    Names seen;
    std::vector<std::string> open = {from};
    while (!open.empty()) {
        std::string const name = open.back();
        open.pop_back();
        if (name == to) {
            return true;
        }
        auto const at = graph.find(name);
        if (!seen.insert(name).second || at == graph.end()) {
            continue;
        }
        for (Include const & include : at->second) {
            open.push_back(include.name);
        }
    }
    return false;
}

} // namespace

std::set<std::string> unreachedFrom(std::string const & header, std::vector<File> const & files) {
    Graph const graph = graphOf(files);
    std::set<std::string> unreached;
    for (auto const & each : graph) {
        if (startsWith(each.first, "tav/vinta/") && !reaches(graph, header, each.first)) {
            unreached.insert(each.first);
        }
    }
    return unreached;
}

std::vector<std::string> brokenRules(std::vector<File> const & files) {
    std::vector<std::string> broken;
    Graph graph = graphOf(files);
    for (File const & file : files) {
        auto const tell = [&](unsigned line, std::string const & rule) {
            broken.push_back(file.path + ":" + std::to_string(line) + ": " + rule);
        };
        bool const ofLibrary = isOfLibrary(file.path);
        if (ofLibrary && !isSource(file.path)) {
            if (!isBuildFile(file.path)) {
                tell(1, "no source of the library ends like this");
            }
            continue;
        }
        std::string const folder = folderOf(file.path);
        if (folder.empty()) {
            tell(1, startsWith(file.path, "src/") ? "a folder without a row in the table"
                                                  : "a public header without a row in the table");
        }
        std::istringstream lines(ofLibrary && !mayNameSystem(file.path) ? file.text : std::string());
        std::string text;
        for (unsigned number = 1; std::getline(lines, text); ++number) {
            std::string const rule = brokenByNamingSystem(text);
            if (!rule.empty()) {
                tell(number, rule);
            }
        }
        std::string const self = includedName(file.path);
        for (Include const & include : graph[self]) {
            std::string const rule = brokenRule(file.path, folder, include.name);
            if (!rule.empty()) {
                tell(include.line, rule);
            }
            if (reaches(graph, include.name, self)) {
                tell(include.line, "headers that include each other: " + include.name);
            }
        }
    }
    return broken;
}

std::vector<File> readTree(std::string const & root) {
    namespace fs = std::filesystem;
    std::vector<File> files;
    for (char const * const top :
         {"include", "src", "tools", "bindings", "gateway", "examples", "bench", "fuzz"}) {
        if (!fs::exists(fs::path(root) / top)) {
            continue;
        }
        for (auto const & entry : fs::recursive_directory_iterator(fs::path(root) / top)) {
            std::string const path = fs::relative(entry.path(), root).generic_string();
            if (entry.is_regular_file() && (isSource(path) || isOfLibrary(path))) {
                std::ifstream in(entry.path(), std::ios::binary);
                files.push_back({path, std::string(std::istreambuf_iterator<char>(in), {})});
            }
        }
    }
    std::sort(files.begin(), files.end(), [](File const & a, File const & b) { return a.path < b.path; });
    return files;
}

} // namespace layout
