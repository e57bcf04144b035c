#include "platform/graph/GraphWriter.hpp"

#include <simdjson.h>

#include <array>
#include <fstream>

namespace dependency::graph {

namespace {

constexpr std::array<char, 16> hexDigits{'0', '1', '2', '3', '4', '5', '6', '7',
                                         '8', '9', 'a', 'b', 'c', 'd', 'e', 'f'};

// Appends one character of a JSON string's content, escaped as JSON needs.
void appendEscapedAscii(std::string& out, char c) {
    switch (c) {
    case '"':
        out += "\\\"";
        return;
    case '\\':
        out += "\\\\";
        return;
    case '\b':
        out += "\\b";
        return;
    case '\f':
        out += "\\f";
        return;
    case '\n':
        out += "\\n";
        return;
    case '\r':
        out += "\\r";
        return;
    case '\t':
        out += "\\t";
        return;
    default:
        break;
    }
    auto const byte = static_cast<unsigned char>(c);
    if (byte < 0x20) {
        out += "\\u00";
        out += hexDigits[byte >> 4];
        out += hexDigits[byte & 0xF];
    } else {
        out += c;
    }
}

void appendUtf8(std::string& out, char32_t code) {
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | (code >> 6));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        out += static_cast<char>(0xE0 | (code >> 12));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (code >> 18));
        out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

// UTF-16 text as UTF-8, escaped for a JSON string when `escape` is set. A
// surrogate without its partner (which UTF-8 cannot hold) becomes U+FFFD.
void appendText(std::string& out, std::u16string_view text, bool escape) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        char16_t const unit = text[i];
        if (unit < 0x80) {
            if (escape) {
                appendEscapedAscii(out, static_cast<char>(unit));
            } else {
                out += static_cast<char>(unit);
            }
        } else if (unit >= 0xD800 && unit <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
                   text[i + 1] <= 0xDFFF) {
            appendUtf8(out, 0x10000 + ((static_cast<char32_t>(unit) - 0xD800) << 10) + (text[i + 1] - 0xDC00));
            ++i;
        } else if (unit >= 0xD800 && unit <= 0xDFFF) {
            appendUtf8(out, 0xFFFD);
        } else {
            appendUtf8(out, unit);
        }
    }
}

void appendString(std::string& out, std::u16string_view text) {
    out += '"';
    appendText(out, text, true);
    out += '"';
}

std::string utf8Of(std::u16string_view text) {
    std::string result;
    result.reserve(text.size());
    appendText(result, text, false);
    return result;
}

// Writes in large pieces: a graph of millions of nodes is written without a
// stream call per value.
class Writer {
public:
    Writer(std::ostream& out, std::filesystem::path const& baseFolder) : out_(out) {
        if (!baseFolder.empty()) {
            // The loader resolves a relative path by putting the normal form of
            // the graph file's folder and a '/' in front of it.
            auto const normal = baseFolder.lexically_normal().u16string();
            basePrefix_ = normal;
            if (basePrefix_.back() != u'/') {
                basePrefix_ += u'/';
            }
        }
        buffer_.reserve(flushAt + 4096);
    }

    void write(Graph const& graph) {
        buffer_ += "{\n  \"format\": \"depattr-graph\",\n  \"version\": 1,\n  \"nodes\": [";
        bool first = true;
        for (auto const& node : graph.getNodes()) {
            buffer_ += first ? "\n    " : ",\n    ";
            first = false;
            writeNode(*node);
            flushIfFull();
        }
        buffer_ += first ? "],\n  \"edges\": [" : "\n  ],\n  \"edges\": [";
        first = true;
        for (auto const& node : graph.getNodes()) {
            for (auto const& dependency : graph.getDownstreamDependencies(*node)) {
                buffer_ += first ? "\n    {\"from\": " : ",\n    {\"from\": ";
                first = false;
                appendString(buffer_, dependency->getUpstreamNode()->getID());
                buffer_ += ", \"to\": ";
                appendString(buffer_, dependency->getDownstreamNode()->getID());
                buffer_ += ", \"type\": \"";
                buffer_ += dependency->getRelationship().name();
                buffer_ += "\"}";
                flushIfFull();
            }
        }
        buffer_ += first ? "]\n}\n" : "\n  ]\n}\n";
        flush();
    }

private:
    static constexpr std::size_t flushAt = 1 << 16;

    void writeNode(Node const& node) {
        Type const type = node.getType();
        bool const defaultIsFile = type == Type::FILE() || type == Type::DERIVED();
        // The loader takes the first location entry of these nodes as a path.
        bool const firstEntryIsPath = node.isFile() || type == Type::FUNCTION();

        buffer_ += "{\"id\": ";
        appendString(buffer_, node.getID());
        buffer_ += ", \"type\": \"";
        buffer_ += type.name();
        buffer_ += '"';
        if (auto const name = node.getName(); name != node.getID()) {
            buffer_ += ", \"name\": ";
            appendString(buffer_, name);
        }
        auto const& path = node.getPath();
        auto const& location = node.getLocation();
        if (!path.empty()) {
            buffer_ += ", \"path\": ";
            appendPath(path);
        }
        // A file-like node without a location but with a path gets the path
        // as its location when read, so its location is left out exactly then;
        // an empty location next to a path is written as [] to stay empty.
        bool const locationIsPath = node.isFile() && !path.empty() && location.size() == 1 && location.front() == path;
        if (!locationIsPath && (!location.empty() || (node.isFile() && !path.empty()))) {
            buffer_ += ", \"location\": [";
            for (std::size_t i = 0; i < location.size(); ++i) {
                if (i > 0) {
                    buffer_ += ", ";
                }
                if (i == 0 && firstEntryIsPath) {
                    appendPath(location[i]);
                } else {
                    appendString(buffer_, location[i]);
                }
            }
            buffer_ += ']';
        }
        if (node.isFile() != defaultIsFile) {
            buffer_ += node.isFile() ? ", \"file\": true" : ", \"file\": false";
        }
        if (!node.isResolved()) {
            buffer_ += ", \"resolved\": false";
        }
        auto const& properties = node.getProperties();
        if (!properties.empty()) {
            buffer_ += ", \"properties\": {";
            bool first = true;
            for (auto const& [key, value] : properties) {
                buffer_ += first ? "" : ", ";
                first = false;
                appendString(buffer_, key);
                buffer_ += ": ";
                if (key == u"circularReferences") {
                    appendCycleList(node, value);
                } else {
                    appendString(buffer_, value);
                }
            }
            buffer_ += '}';
        }
        buffer_ += '}';
    }

    // A path below the base folder is written relative to it, when the loader
    // gives back the same text: its rest must need no normalising.
    void appendPath(std::u16string const& path) {
        if (!basePrefix_.empty() && path.size() > basePrefix_.size() &&
            std::u16string_view(path).starts_with(basePrefix_)) {
            std::u16string_view const rest = std::u16string_view(path).substr(basePrefix_.size());
            if (!needsNormalising(rest)) {
                appendString(buffer_, rest);
                return;
            }
        }
        appendString(buffer_, path);
    }

    static bool needsNormalising(std::u16string_view path) {
        return path.front() == u'/' || path == u"." || path == u".." || path.starts_with(u"./") ||
               path.starts_with(u"../") || path.find(u"/./") != std::u16string_view::npos ||
               path.find(u"/../") != std::u16string_view::npos || path.ends_with(u"/.") || path.ends_with(u"/..") ||
               path.find(u"//") != std::u16string_view::npos;
    }

    // "circularReferences" holds the JSON text of an array of strings, which
    // the loader requires as an array: written as that text, after a check.
    void appendCycleList(Node const& node, std::u16string const& value) {
        std::string const text = utf8Of(value);
        simdjson::dom::parser parser;
        simdjson::dom::element element;
        simdjson::dom::array array;
        bool valid = parser.parse(simdjson::padded_string(text)).get(element) == simdjson::SUCCESS &&
                     element.get_array().get(array) == simdjson::SUCCESS;
        if (valid) {
            for (auto const item : array) {
                valid = valid && item.is_string();
            }
        }
        if (!valid) {
            throw GraphWriteError("the property \"circularReferences\" of node \"" + utf8Of(node.getID()) +
                                  "\" is not a JSON array of strings: " + text);
        }
        buffer_ += text;
    }

    void flushIfFull() {
        if (buffer_.size() >= flushAt) {
            flush();
        }
    }

    void flush() {
        out_.write(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
        buffer_.clear();
        if (!out_) {
            throw GraphWriteError("cannot write the graph: the output stream failed");
        }
    }

    std::ostream& out_;
    std::u16string basePrefix_;  // the normal base folder with a trailing '/', or empty
    std::string buffer_;
};

}  // namespace

void appendJsonString(std::string& out, std::string_view utf8) {
    out += '"';
    for (char const c : utf8) {
        appendEscapedAscii(out, c);
    }
    out += '"';
}

void writeGraph(std::ostream& out, Graph const& graph, std::filesystem::path const& baseFolder) {
    Writer(out, baseFolder).write(graph);
}

void writeGraphFile(std::filesystem::path const& file, Graph const& graph) {
    std::error_code ignored;
    auto const folder = std::filesystem::absolute(file, ignored).parent_path();
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    if (!out) {
        throw GraphWriteError(file.string() + ": cannot write the graph file");
    }
    try {
        writeGraph(out, graph, folder);
        out.close();
        if (!out) {
            throw GraphWriteError("the output stream failed");
        }
    } catch (GraphWriteError const& error) {
        throw GraphWriteError(file.string() + ": " + error.what());
    }
}

}  // namespace dependency::graph
