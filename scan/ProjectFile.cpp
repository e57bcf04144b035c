#include "scan/ProjectFile.hpp"

#include "platform/fl/FileSystem.hpp"
#include "platform/fl/MessageCatalog.hpp"
#include "platform/graph/GraphWriter.hpp"

#include <pugixml.hpp>

#include <algorithm>
#include <cstring>
#include <map>
#include <set>
#include <sstream>
#include <string_view>
#include <utility>

namespace depattr::scan {

namespace {

std::string describe(std::string const& file, std::size_t line, std::size_t column, std::string const& reason) {
    std::ostringstream text;
    text << file;
    if (line > 0) {
        text << ':' << line << ':' << column;
    }
    text << ": " << reason;
    return text.str();
}

// The offset of the first byte that is not part of well-formed UTF-8 or is a
// NUL (which XML cannot hold), or nothing.
std::optional<std::size_t> firstBadByte(std::string_view text) {
    auto const invalid = fl::i18n::first_invalid_utf8(text);
    auto const nul = text.find('\0');
    if (nul != std::string_view::npos && (!invalid || nul < *invalid)) {
        return nul;
    }
    return invalid;
}

std::filesystem::path pathOf(std::string_view utf8) {
    return std::filesystem::path(std::u8string(utf8.begin(), utf8.end()));
}

std::string utf8Of(std::filesystem::path const& path) {
    auto const text = path.u8string();
    return std::string(text.begin(), text.end());
}

bool isBlank(char const* text) {
    for (; *text != '\0'; ++text) {
        if (*text != ' ' && *text != '\t' && *text != '\n' && *text != '\r') {
            return false;
        }
    }
    return true;
}

// Reads one project file: pugixml parses a copy of the text in place, so
// that every element and attribute name points into the copy and its offset
// there is its offset in the file; lines and columns are counted in the
// untouched original.
class Reader {
public:
    Reader(std::filesystem::path const& file) : fileName_(file.string()) {
        std::error_code ignored;
        project_.file = std::filesystem::absolute(file, ignored).lexically_normal();
        if (project_.file.empty()) {
            project_.file = file.lexically_normal();
        }
        folder_ = project_.file.parent_path();
    }

    ProjectFile read() {
        try {
            text_ = fl::filesystem::read_file(fileName_, maxProjectFileBytes);
        } catch (fl::filesystem::FileSystemError const& error) {
            fail(0, 0, "cannot read the project file: " + error.reason());
        } catch (std::invalid_argument const&) {
            fail(0, 0, "cannot read the project file: not a valid path");
        }
        if (auto const bad = firstBadByte(text_)) {
            failAt(*bad, "the file is not UTF-8 text (byte 0x" + hex(static_cast<unsigned char>(text_[*bad])) + ")");
        }
        parsed_ = text_;
        pugi::xml_document document;
        pugi::xml_parse_result const result = document.load_buffer_inplace(
            parsed_.data(), parsed_.size(), pugi::parse_default | pugi::parse_declaration, pugi::encoding_utf8);
        if (!result) {
            failAt(static_cast<std::size_t>(std::max<std::ptrdiff_t>(result.offset, 0)),
                   std::string("not well-formed XML: ") + result.description());
        }
        pugi::xml_node const root = document.document_element();
        for (pugi::xml_node const& node : document.children()) {
            if (node.type() == pugi::node_element && node != root) {
                failAtElement(node, "a second top-level element <" + std::string(node.name()) +
                                        ">: a project file holds one <project>");
            }
            if ((node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata) && !isBlank(node.value())) {
                failAtText(node, root, "text outside <project>");
            }
        }
        if (std::strcmp(root.name(), "project") != 0) {
            failAtElement(root, "the root element is <" + std::string(root.name()) + ">, not <project>");
        }
        readProject(root);
        return std::move(project_);
    }

private:
    static std::string hex(unsigned char byte) {
        char const* const digits = "0123456789ABCDEF";
        return {digits[byte >> 4], digits[byte & 0xF]};
    }

    [[noreturn]] void fail(std::size_t line, std::size_t column, std::string const& reason) const {
        throw ProjectFileError(fileName_, line, column, reason);
    }

    [[noreturn]] void failAt(std::size_t offset, std::string const& reason) const {
        offset = std::min(offset, text_.size());
        std::size_t line = 1;
        std::size_t column = 1;
        for (std::size_t i = 0; i < offset; ++i) {
            if (text_[i] == '\n') {
                ++line;
                column = 1;
            } else {
                ++column;
            }
        }
        fail(line, column, reason);
    }

    // The offset of a text the parser left in the copy, or nothing when it
    // lies elsewhere (an empty value is a constant of the parser's).
    std::optional<std::size_t> offsetOf(char const* text) const {
        if (text >= parsed_.data() && text < parsed_.data() + parsed_.size()) {
            return static_cast<std::size_t>(text - parsed_.data());
        }
        return std::nullopt;
    }

    // At the element's '<'.
    std::size_t elementOffset(pugi::xml_node const& element) const {
        auto const offset = offsetOf(element.name());
        return offset && *offset > 0 ? *offset - 1 : 0;
    }

    [[noreturn]] void failAtElement(pugi::xml_node const& element, std::string const& reason) const {
        failAt(elementOffset(element), reason);
    }

    [[noreturn]] void failAtAttribute(pugi::xml_node const& element, pugi::xml_attribute const& attribute,
                                      std::string const& reason) const {
        failAt(offsetOf(attribute.name()).value_or(elementOffset(element)), reason);
    }

    [[noreturn]] void failAtText(pugi::xml_node const& text, pugi::xml_node const& near,
                                 std::string const& reason) const {
        // Text points into the copy unless it was empty; its first character
        // that is not blank is where the problem is.
        if (auto offset = offsetOf(text.value())) {
            while (*offset < text_.size() && std::strchr(" \t\r\n", text_[*offset]) != nullptr) {
                ++*offset;
            }
            failAt(*offset, reason);
        }
        failAtElement(near, reason);
    }

    // The element's attributes by name, each once, each known and not empty.
    std::map<std::string, pugi::xml_attribute> attributes(pugi::xml_node const& element,
                                                          std::vector<std::string_view> const& known) const {
        std::map<std::string, pugi::xml_attribute> found;
        for (pugi::xml_attribute const& attribute : element.attributes()) {
            std::string const name = attribute.name();
            if (std::find(known.begin(), known.end(), name) == known.end()) {
                std::string expected;
                for (auto const& each : known) {
                    expected += (expected.empty() ? "" : ", ") + std::string(each);
                }
                failAtAttribute(element, attribute,
                                "unknown attribute \"" + name + "\" of <" + element.name() + "> (expected " +
                                    (expected.empty() ? std::string("none") : expected) + ")");
            }
            if (!found.emplace(name, attribute).second) {
                failAtAttribute(element, attribute,
                                "attribute \"" + name + "\" is given twice in <" + element.name() + ">");
            }
            if (*attribute.value() == '\0') {
                failAtAttribute(element, attribute, "attribute \"" + name + "\" of <" + element.name() + "> is empty");
            }
        }
        return found;
    }

    pugi::xml_attribute required(std::map<std::string, pugi::xml_attribute> const& found, pugi::xml_node const& element,
                                 std::string const& name) const {
        auto const it = found.find(name);
        if (it == found.end()) {
            failAtElement(element, "<" + std::string(element.name()) + "> needs a \"" + name + "\" attribute");
        }
        return it->second;
    }

    // Elements inside <project> hold nothing but their attributes.
    void checkEmpty(pugi::xml_node const& element) const {
        for (pugi::xml_node const& child : element.children()) {
            if (child.type() == pugi::node_element) {
                failAtElement(child, "unknown element <" + std::string(child.name()) + "> in <" + element.name() +
                                         ">: it takes attributes only");
            }
            if ((child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata) && !isBlank(child.value())) {
                failAtText(child, element, "unexpected text in <" + std::string(element.name()) + ">");
            }
        }
    }

    std::pair<std::size_t, std::size_t> position(pugi::xml_node const& element) const {
        std::size_t const offset = elementOffset(element);
        std::size_t line = 1;
        std::size_t column = 1;
        for (std::size_t i = 0; i < offset; ++i) {
            if (text_[i] == '\n') {
                ++line;
                column = 1;
            } else {
                ++column;
            }
        }
        return {line, column};
    }

    std::filesystem::path resolve(char const* utf8) const {
        auto const path = pathOf(utf8);
        return (path.is_absolute() ? path : folder_ / path).lexically_normal();
    }

    void readProject(pugi::xml_node const& root) {
        auto const found = attributes(root, {"name"});
        if (auto const name = found.find("name"); name != found.end()) {
            project_.name = name->second.value();
        } else {
            project_.name = utf8Of(project_.file.stem());
        }
        for (pugi::xml_node const& child : root.children()) {
            if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata) {
                if (!isBlank(child.value())) {
                    failAtText(child, root, "unexpected text in <project>");
                }
                continue;
            }
            if (child.type() != pugi::node_element) {
                continue;  // comments and processing instructions
            }
            std::string_view const kind = child.name();
            checkEmpty(child);
            if (kind == "reference") {
                readReference(child);
            } else if (kind == "path") {
                auto const attributesFound = attributes(child, {"folder"});
                project_.pathFolders.push_back(resolve(required(attributesFound, child, "folder").value()));
            } else if (kind == "derived") {
                readDerived(child);
            } else {
                failAtElement(child, "unknown element <" + std::string(kind) +
                                         "> in <project> (expected reference, path or derived)");
            }
        }
    }

    void readReference(pugi::xml_node const& element) {
        auto const found = attributes(element, {"project", "path"});
        auto const project = found.find("project");
        auto const path = found.find("path");
        if ((project == found.end()) == (path == found.end())) {
            failAtElement(element, "a <reference> names a project either by \"project\" or by \"path\", not " +
                                       std::string(project == found.end() ? "neither" : "both"));
        }
        ProjectReference reference;
        if (project != found.end()) {
            reference.project = project->second.value();
        } else {
            reference.file = resolve(path->second.value());
        }
        std::tie(reference.line, reference.column) = position(element);
        project_.references.push_back(std::move(reference));
    }

    void readDerived(pugi::xml_node const& element) {
        auto const found = attributes(element, {"output", "source"});
        DerivedRule rule;
        rule.output = required(found, element, "output").value();
        rule.source = required(found, element, "source").value();
        auto const stars = [](std::string const& text) { return std::count(text.begin(), text.end(), '*'); };
        if (stars(rule.output) > 1 || stars(rule.source) > 1) {
            failAtElement(element, "a <derived> rule holds one '*' at most in its output and in its source");
        }
        if (stars(rule.output) == 0 && stars(rule.source) == 1) {
            failAtElement(element, "a <derived> rule with a '*' in its source needs one in its output");
        }
        std::tie(rule.line, rule.column) = position(element);
        project_.derived.push_back(std::move(rule));
    }

    std::string fileName_;
    std::filesystem::path folder_;
    std::string text_;    // the file as it is
    std::string parsed_;  // the copy the parser works in
    ProjectFile project_;
};

// Every elementary cycle through one project, by Johnson's circuit search
// from that project within its strongly connected component: a vertex stays
// blocked while no path from it leads back to the start, so the search does
// work in proportion to the cycles it finds rather than to every path.
// Iterative, so a long chain of projects needs no deep call stack.
class CycleSearch {
public:
    // A bound on the work for one project, whatever the shape of the graph.
    static constexpr std::size_t maxSearchSteps = 1'000'000;

    CycleSearch(std::vector<std::vector<std::size_t>> const& edges, std::vector<std::size_t> const& component)
        : edges_(edges), component_(component), blocked_(edges.size(), false), blockedBy_(edges.size()) {}

    std::vector<std::vector<std::size_t>> cyclesThrough(std::size_t start) {
        std::vector<std::vector<std::size_t>> cycles;
        std::vector<std::size_t> path{start};
        struct Frame {
            std::size_t vertex;
            std::size_t next = 0;
            bool closed = false;  // a cycle was found below this vertex
        };
        std::vector<Frame> frames{{start}};
        std::fill(blocked_.begin(), blocked_.end(), false);
        for (auto& set : blockedBy_) {
            set.clear();
        }
        blocked_[start] = true;
        std::size_t steps = 0;
        while (!frames.empty() && cycles.size() < maxCyclesSearched && ++steps <= maxSearchSteps) {
            Frame& frame = frames.back();
            auto const& out = edges_[frame.vertex];
            if (frame.next < out.size()) {
                std::size_t const next = out[frame.next++];
                if (component_[next] != component_[start]) {
                    continue;
                }
                if (next == start) {
                    cycles.push_back(path);
                    frame.closed = true;
                } else if (!blocked_[next]) {
                    blocked_[next] = true;
                    path.push_back(next);
                    frames.push_back({next});
                }
                continue;
            }
            Frame const done = frame;
            frames.pop_back();
            path.pop_back();
            if (done.closed) {
                unblock(done.vertex);
            } else {
                for (std::size_t const next : out) {
                    if (component_[next] == component_[start]) {
                        blockedBy_[next].insert(done.vertex);
                    }
                }
            }
            if (!frames.empty()) {
                frames.back().closed = frames.back().closed || done.closed;
            }
        }
        return cycles;
    }

private:
    void unblock(std::size_t vertex) {
        std::vector<std::size_t> pending{vertex};
        while (!pending.empty()) {
            std::size_t const current = pending.back();
            pending.pop_back();
            blocked_[current] = false;
            for (std::size_t const waiting : blockedBy_[current]) {
                if (blocked_[waiting]) {
                    pending.push_back(waiting);
                }
            }
            blockedBy_[current].clear();
        }
    }

    std::vector<std::vector<std::size_t>> const& edges_;
    std::vector<std::size_t> const& component_;
    std::vector<bool> blocked_;
    std::vector<std::set<std::size_t>> blockedBy_;
};

// The strongly connected component of every vertex (Tarjan's algorithm with
// an explicit stack).
std::vector<std::size_t> components(std::vector<std::vector<std::size_t>> const& edges) {
    std::size_t const count = edges.size();
    constexpr std::size_t unvisited = static_cast<std::size_t>(-1);
    std::vector<std::size_t> index(count, unvisited), low(count, 0), component(count, unvisited);
    std::vector<bool> onStack(count, false);
    std::vector<std::size_t> stack;
    std::size_t nextIndex = 0;
    std::size_t nextComponent = 0;
    for (std::size_t root = 0; root < count; ++root) {
        if (index[root] != unvisited) {
            continue;
        }
        std::vector<std::pair<std::size_t, std::size_t>> calls{{root, 0}};  // vertex, next edge
        index[root] = low[root] = nextIndex++;
        stack.push_back(root);
        onStack[root] = true;
        while (!calls.empty()) {
            auto& [vertex, next] = calls.back();
            if (next < edges[vertex].size()) {
                std::size_t const target = edges[vertex][next++];
                if (index[target] == unvisited) {
                    index[target] = low[target] = nextIndex++;
                    stack.push_back(target);
                    onStack[target] = true;
                    calls.emplace_back(target, 0);
                } else if (onStack[target]) {
                    low[vertex] = std::min(low[vertex], index[target]);
                }
                continue;
            }
            std::size_t const finished = vertex;
            calls.pop_back();
            if (!calls.empty()) {
                low[calls.back().first] = std::min(low[calls.back().first], low[finished]);
            }
            if (low[finished] == index[finished]) {
                std::size_t member = 0;
                do {
                    member = stack.back();
                    stack.pop_back();
                    onStack[member] = false;
                    component[member] = nextComponent;
                } while (member != finished);
                ++nextComponent;
            }
        }
    }
    return component;
}

}  // namespace

ProjectFileError::ProjectFileError(std::string file, std::size_t line, std::size_t column, std::string const& reason)
    : std::runtime_error(describe(file, line, column, reason)),
      file_(std::move(file)),
      line_(line),
      column_(column),
      reason_(reason) {}

ProjectFile readProjectFile(std::filesystem::path const& file) {
    return Reader(file).read();
}

std::vector<std::optional<std::string>> circularReferences(std::vector<ProjectFile> const& projects) {
    std::size_t const count = projects.size();
    std::map<std::filesystem::path, std::size_t> byFile;
    std::map<std::string, std::size_t> byName;
    for (std::size_t i = 0; i < count; ++i) {
        byFile.emplace(projects[i].file.lexically_normal(), i);
        byName.emplace(projects[i].name, i);
    }
    // Each project's referenced projects, once each, ordered by name so that
    // the search (and so which cycles are found first) does not depend on
    // the order the references are written in.
    std::vector<std::vector<std::size_t>> edges(count);
    for (std::size_t i = 0; i < count; ++i) {
        for (auto const& reference : projects[i].references) {
            std::optional<std::size_t> target;
            if (!reference.file.empty()) {
                if (auto const it = byFile.find(reference.file.lexically_normal()); it != byFile.end()) {
                    target = it->second;
                }
            } else if (auto const it = byName.find(reference.project); it != byName.end()) {
                target = it->second;
            }
            if (target && std::find(edges[i].begin(), edges[i].end(), *target) == edges[i].end()) {
                edges[i].push_back(*target);
            }
        }
        std::sort(edges[i].begin(), edges[i].end(), [&](std::size_t a, std::size_t b) {
            return std::tie(projects[a].name, a) < std::tie(projects[b].name, b);
        });
    }

    auto const component = components(edges);
    std::vector<std::size_t> componentSize(count, 0);
    for (std::size_t i = 0; i < count; ++i) {
        ++componentSize[component[i]];
    }
    CycleSearch search(edges, component);
    std::vector<std::optional<std::string>> result(count);
    for (std::size_t i = 0; i < count; ++i) {
        bool const selfReference = std::find(edges[i].begin(), edges[i].end(), i) != edges[i].end();
        if (componentSize[component[i]] < 2 && !selfReference) {
            continue;
        }
        std::vector<std::pair<std::size_t, std::string>> cycles;
        for (auto const& cycle : search.cyclesThrough(i)) {
            std::string text;
            for (std::size_t const member : cycle) {
                text += projects[member].name + " > ";
            }
            text += projects[i].name;
            cycles.emplace_back(cycle.size(), std::move(text));
        }
        std::sort(cycles.begin(), cycles.end());
        if (cycles.size() > maxCyclesListed) {
            cycles.resize(maxCyclesListed);
        }
        std::string array = "[";
        for (std::size_t k = 0; k < cycles.size(); ++k) {
            if (k > 0) {
                array += ", ";
            }
            dependency::graph::appendJsonString(array, cycles[k].second);
        }
        array += ']';
        result[i] = std::move(array);
    }
    return result;
}

}  // namespace depattr::scan
