#include "platform/graph/GraphFile.hpp"

#include "platform/fl/FileSystem.hpp"
#include "platform/foundation/JsonReaderErrors.hpp"
#include "platform/foundation/Printable.hpp"
#include "platform/foundation/SourceText.hpp"
#include "platform/graph/GraphBuilder.hpp"
#include "platform/graph/detail/ArraySlices.hpp"

#include <boost/locale/encoding_utf.hpp>
#include <simdjson.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <new>
#include <numeric>
#include <stop_token>
#include <thread>
#include <unordered_map>
#include <utility>

namespace dependency::graph {

namespace {

namespace od = simdjson::ondemand;

// The error of a graph file that could not be read whole.
GraphFileError unreadable(std::string const& fileName, std::string const& reason) {
    return GraphFileError(fileName, 0, 0, "cannot read the graph file: " + reason);
}

std::u16string toUtf16(std::string_view utf8) {
    // Graph files are mostly ASCII: widen directly and convert only when needed.
    std::u16string result(utf8.size(), u'\0');
    for (std::size_t i = 0; i < utf8.size(); ++i) {
        auto const byte = static_cast<unsigned char>(utf8[i]);
        if (byte >= 0x80) {
            return boost::locale::conv::utf_to_utf<char16_t>(utf8.data(), utf8.data() + utf8.size());
        }
        result[i] = static_cast<char16_t>(byte);
    }
    return result;
}

// A graph file's text with the zeroed padding the JSON reader reads past its
// end. A text given as a string is copied into huge pages where the system
// offers them: every page of it is touched, and a quarter of a gigabyte in
// small pages is tens of thousands of page faults. A file of some size is
// mapped instead: its pages come from the system's file cache without being
// copied, and those the reader has passed are given back as it goes, so the
// text takes little of the memory the graph it becomes needs.
class GraphText {
public:
    GraphText() = default;
    explicit GraphText(std::unique_ptr<fl::filesystem::MappedFile> mapped)
        : mapped_(std::move(mapped)), data_(mapped_->data()), size_(mapped_->size()), capacity_(mapped_->capacity()) {}
    explicit GraphText(std::size_t size) : size_(size), capacity_(size + simdjson::SIMDJSON_PADDING) {
        data_ = detail::LargeArrayAllocator<char>().allocate(capacity_);
        std::fill_n(data_ + size_, capacity_ - size_, '\0');
    }
    explicit GraphText(std::string_view text) : GraphText(text.size()) { std::copy(text.begin(), text.end(), data_); }
    // The same text, not owned: for a reader beside the one that owns it.
    static GraphText viewOf(GraphText const& text) noexcept {
        GraphText view;
        view.data_ = text.data_;
        view.size_ = text.size_;
        view.capacity_ = text.capacity_;
        view.owned_ = false;
        return view;
    }
    GraphText(GraphText&& other) noexcept
        : mapped_(std::move(other.mapped_)),
          data_(std::exchange(other.data_, nullptr)),
          size_(std::exchange(other.size_, 0)),
          capacity_(std::exchange(other.capacity_, 0)),
          owned_(std::exchange(other.owned_, true)) {}
    GraphText& operator=(GraphText&& other) noexcept {
        if (this != &other) {
            release();
            mapped_ = std::move(other.mapped_);
            data_ = std::exchange(other.data_, nullptr);
            size_ = std::exchange(other.size_, 0);
            capacity_ = std::exchange(other.capacity_, 0);
            owned_ = std::exchange(other.owned_, true);
        }
        return *this;
    }
    ~GraphText() { release(); }

    char* data() noexcept { return data_; }
    char const* data() const noexcept { return data_; }
    std::size_t size() const noexcept { return size_; }
    // The size with the padding after the text.
    std::size_t capacity() const noexcept { return capacity_; }
    simdjson::padded_string_view view() const noexcept {
        return data_ == nullptr ? simdjson::padded_string_view("", 0, simdjson::SIMDJSON_PADDING)
                                : simdjson::padded_string_view(data_, size_, capacity_);
    }
    // Lets the memory of the text before `position` go where the text is a
    // mapped file (it is read again from the file should it be needed).
    void releaseBefore(char const* position) noexcept {
        if (mapped_) {
            mapped_->releaseBefore(position);
        }
    }
    // Lets the memory of all the text go where it is a mapped file (each
    // page is read again from the file when it is next needed).
    void releaseAll() noexcept {
        if (mapped_) {
            mapped_->releaseAll();
        }
    }
    // Throws FileSystemError when the mapped file shrank while it was read.
    void checkWhole() const {
        if (mapped_) {
            mapped_->checkWhole();
        }
    }

private:
    void release() noexcept {
        if (mapped_) {
            mapped_.reset();
            data_ = nullptr;
        } else if (data_ != nullptr && owned_) {
            detail::LargeArrayAllocator<char>().deallocate(data_, capacity_);
        }
        data_ = nullptr;
    }
    std::unique_ptr<fl::filesystem::MappedFile> mapped_;
    char* data_ = nullptr;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
    bool owned_ = true;  // false for a view
};

// Reads one graph document. Every error is raised at the place it is found,
// with the line and column of the offending text.
class GraphReader {
public:
    GraphReader(GraphText text, std::string const& fileName, std::filesystem::path const& baseFolder,
                GraphFileOptions const& options = {})
        : text_(std::move(text)), fileName_(fileName), baseFolder_(baseFolder), options_(options) {
        if (!baseFolder_.empty()) {
            auto const normal = baseFolder_.lexically_normal().u8string();
            basePrefix_ = toUtf16(std::string_view(reinterpret_cast<char const*>(normal.data()), normal.size()));
            if (basePrefix_.empty() || basePrefix_.back() != u'/') {
                basePrefix_ += u'/';
            }
        }
    }

    std::shared_ptr<Graph const> read() {
        // A UTF-8 byte-order mark, which some editors write, is no JSON: it is
        // read as the blanks it stands for, so that every offset (and so every
        // line and column reported) stays that of the file.
        if (text_.size() >= 3 && text_.data()[0] == '\xef' && text_.data()[1] == '\xbb' && text_.data()[2] == '\xbf') {
            std::fill_n(text_.data(), 3, ' ');
        }
        try {
            bool read = false;
            try {
                read = readInSlices();
            } catch (NotInSlices const&) {
            } catch (GraphFileError const&) {
                // Reported by the reading of the whole document, where it is
                // found in the same way whatever the file's shape.
            }
            if (read) {
                auto held = std::move(*heldWarnings_);
                heldWarnings_.reset();
                for (auto const& [line, column, message] : held) {
                    options_.warning(line, column, message);
                }
            } else {
                startAgain();
                readDocument();
            }
        } catch (...) {
            checkWhole();  // what the reader made of the zeros is not the file's fault
            throw;
        }
        checkWhole();
        // The text and the reader's buffers (together about twice the file's
        // size) are let go before the graph's edges are made, so that the
        // two never take memory at the same time.
        document_ = nullptr;
        text_ = GraphText();
        cycleParser_ = od::parser();
        sliceParser_ = od::parser();
        std::vector<char const*>().swap(nodeStarts_);
        std::vector<PendingEdge>().swap(pendingEdges_);
        return builder_.build();
    }

private:
    // Reading a large file as one document would have the JSON reader index
    // all of it first: four bytes for each of its tens of millions of brackets,
    // commas, colons and quotes, as much memory again as the file, all of it
    // fresh. The usual file (an object whose members are "format", "version",
    // "nodes" and "edges", in any order but edges after nodes) is read in
    // slices instead: the few bytes between its members are checked here, and
    // the elements of the two arrays go to the reader a slice at a time, each
    // slice made an array of its own by turning the commas around it into
    // brackets for as long as it is read. Every byte of the file is thus
    // either read by the JSON reader or is one of the exact bytes expected
    // here. A file of any other shape, or with an error anywhere, is read
    // again as one document, which reports the error where it is: the slices
    // never decide what an error is or where it lies.
    struct NotInSlices {};
    static constexpr std::size_t sliceBytes = std::size_t{512} << 10;
    static constexpr std::size_t slicesBeside = 4;  // the fewest slices of edges read on two threads

    // A comma of the text made a bracket while a slice is read, put back when
    // the slice is done or its reading fails.
    class Bracket {
    public:
        Bracket(char* at, char bracket) noexcept : at_(*at == ',' ? at : nullptr) {
            if (at_ != nullptr) {
                *at_ = bracket;
            }
        }
        Bracket(Bracket const&) = delete;
        Bracket& operator=(Bracket const&) = delete;
        ~Bracket() {
            if (at_ != nullptr) {
                *at_ = ',';
            }
        }

    private:
        char* at_;
    };

    char const* textEnd() const noexcept { return text_.data() + text_.size(); }

    // The text after `p` when it begins with `expected`; else not in slices.
    char const* expect(char const* p, std::string_view expected) const {
        if (static_cast<std::size_t>(textEnd() - p) < expected.size() ||
            std::string_view(p, expected.size()) != expected) {
            throw NotInSlices{};
        }
        return p + expected.size();
    }

    bool readInSlices() {
        if (text_.data() == nullptr) {
            return false;
        }
        heldWarnings_.emplace();  // shown once the whole file has been read
        char const* const end = textEnd();
        char const* p = detail::skipBlanks(expect(firstNonSpace(), "{"), end);
        bool sawNodes = false;
        while (true) {
            p = expect(p, "\"");
            char const* const keyEnd = std::find(p, end, '"');
            std::string_view const key(p, static_cast<std::size_t>(keyEnd - p));
            p = detail::skipBlanks(expect(detail::skipBlanks(expect(keyEnd, "\""), end), ":"), end);
            if (key == "nodes" && !sawNodes) {
                p = readArrayInSlices(p, true);
                sawNodes = true;
                nodesRead_ = true;
            } else if (key == "edges" && sawNodes) {
                p = readArrayInSlices(p, false);
            } else if (key == "format") {
                p = expect(p, "\"depattr-graph\"");
            } else if (key == "version") {
                p = expect(p, "1");
            } else {
                throw NotInSlices{};
            }
            p = detail::skipBlanks(p, end);
            if (p < end && *p == ',') {
                p = detail::skipBlanks(p + 1, end);
                continue;
            }
            p = expect(p, "}");
            break;
        }
        if (!sawNodes || detail::skipBlanks(p, end) != end) {
            throw NotInSlices{};
        }
        return true;
    }

    // Reads the array whose '[' is at `open`; returns where the text after it begins.
    char const* readArrayInSlices(char const* open, bool nodes) {
        char const* const end = textEnd();
        if (open >= end || *open != '[') {
            throw NotInSlices{};
        }
        // The elements are cut and counted first (the cut reads the text once
        // more, a small part of the work of reading it), so that the tables
        // are made at their size and the edges of a large file can be halved.
        std::vector<detail::ArraySlice> slices;
        std::size_t count = 0;
        for (char const* from = open; slices.empty() || !slices.back().last(); from = slices.back().close) {
            auto const next = detail::nextSlice(from, end, sliceBytes);
            if (!next) {
                throw NotInSlices{};
            }
            slices.push_back(*next);
            count += next->elements;
        }
        text_.releaseAll();  // the cut has touched every page of the array
        if (nodes) {
            builder_.reserve(count);
            nodeStarts_.reserve(count);
            if (options_.positions != nullptr) {
                options_.positions->reset(fileName_, count);
            }
            for (auto const& each : slices) {
                readSlice(each, true);
            }
        } else {
            builder_.reserveDependencies(count);
            if (slices.size() >= slicesBeside) {
                readEdgeSlicesBeside(slices);
            } else {
                for (auto const& each : slices) {
                    readSlice(each, false);
                }
            }
        }
        return slices.back().close + 1;
    }

    // Reads a slice where it stands in the text, the commas around it made
    // brackets while it is read.
    void readSlice(detail::ArraySlice const& slice, bool nodes) {
        if (slice.elements == 0) {
            return;
        }
        char* const open = text_.data() + (slice.open - text_.data());
        char* const close = text_.data() + (slice.close - text_.data());
        Bracket const opening(open, '[');
        Bracket const closing(close, ']');
        readSliceText(open, static_cast<std::size_t>(close + 1 - open),
                      text_.capacity() - static_cast<std::size_t>(open - text_.data()), slice.elements, nodes);
    }

    // Reads the edges of a slice from a copy, brackets around it, without
    // reading or changing the bytes at its ends: for a reader beside the one
    // that reads the slices before it in place.
    void readEdgeSliceCopied(detail::ArraySlice const& slice) {
        if (slice.elements == 0) {
            return;
        }
        auto const length = static_cast<std::size_t>(slice.close + 1 - slice.open);
        sliceCopy_.resize(length + simdjson::SIMDJSON_PADDING);
        sliceCopy_.front() = '[';
        std::copy(slice.open + 1, slice.close, sliceCopy_.begin() + 1);
        sliceCopy_[length - 1] = ']';
        readSliceText(sliceCopy_.data(), length, sliceCopy_.size(), slice.elements, false);
    }

    // Reads `length` bytes at `text`, an array of `elements` nodes or edges.
    void readSliceText(char const* text, std::size_t length, std::size_t room, std::size_t elements, bool nodes) {
        od::document document;
        od::array array;
        if (sliceParser_.iterate(simdjson::padded_string_view(text, length, room)).get(document) != simdjson::SUCCESS ||
            document.get_array().get(array) != simdjson::SUCCESS) {
            throw NotInSlices{};
        }
        document_ = &document;
        std::size_t read = 0;
        for (auto elementResult : array) {
            od::value element;
            check(std::move(elementResult).get(element), array, nodes ? "a node" : "an edge");
            if (nodes) {
                readNode(element);
            } else {
                readEdge(element);
            }
            elementRead(element);
            ++read;
        }
        // The edges waiting for their ends, and the upstream end read last,
        // may view the reader's buffer or the slice's copy, which the next
        // slice overwrites.
        resolveWaitingEdges();
        haveLastUpstream_ = false;
        document_ = nullptr;
        if (char const* rest = nullptr;
            read != elements || document.current_location().get(rest) == simdjson::SUCCESS) {
            throw NotInSlices{};  // the reader saw other elements than the cut
        }
    }

    // The edges of a large file are read on two threads: this one reads the
    // first half of the slices in place, a reader beside it reads the other
    // half from copies and looks their ends up in this reader's ID index
    // (which no one changes while edges are read); its edges are added after
    // this one's, so the order is the file's. An error on either side reads
    // the whole document again, on this thread alone.
    void readEdgeSlicesBeside(std::vector<detail::ArraySlice> const& slices) {
        std::size_t const half = slices.size() / 2;
        std::vector<ResolvedEdge> besideEdges;
        besideEdges.reserve(std::accumulate(slices.begin() + static_cast<std::ptrdiff_t>(half), slices.end(),
                                            std::size_t{0},
                                            [](std::size_t sum, auto const& slice) { return sum + slice.elements; }));
        bool besideFailed = false;
        std::jthread beside([&](std::stop_token stop) {
            try {
                GraphReader reader(GraphText::viewOf(text_), fileName_, baseFolder_);
                reader.sharedIndex_ = &builder_.index();
                reader.collected_ = &besideEdges;
                reader.quietErrors_ = true;
                reader.nodesRead_ = true;
                for (std::size_t k = half; k < slices.size() && !stop.stop_requested(); ++k) {
                    reader.readEdgeSliceCopied(slices[k]);
                }
            } catch (...) {
                besideFailed = true;
            }
        });
        for (std::size_t k = 0; k < half; ++k) {
            readSlice(slices[k], false);
        }
        beside.join();
        if (besideFailed) {
            throw NotInSlices{};
        }
        for (auto const& edge : besideEdges) {
            builder_.addDependency(edge.upstream, edge.downstream, edge.relationship);
        }
        textRead(slices.back().close);  // the progress of the half read beside
    }

    // Forgets what reading in slices has made, for the reading of the whole document.
    void startAgain() {
        builder_ = GraphBuilder();
        nodeStarts_.clear();
        pendingEdges_.clear();
        nodesRead_ = false;
        haveLastUpstream_ = false;
        waitingStart_ = 0;
        waitingCount_ = 0;
        sinceProgress_ = 0;
        document_ = nullptr;
        heldWarnings_.reset();
        sliceParser_ = od::parser();
        if (options_.positions != nullptr) {
            options_.positions->reset(fileName_, 0);
        }
    }

    void warn(std::size_t line, std::size_t column, std::string message) {
        if (heldWarnings_) {
            heldWarnings_->push_back({line, column, std::move(message)});
        } else {
            options_.warning(line, column, message);
        }
    }

    void readDocument() {
        od::parser parser;
        od::document document;
        if (auto const error = parser.iterate(text_.view()).get(document)) {
            auto const reason = std::string(foundation::json::describeReaderError(error));
            // Bytes that are not UTF-8 and unescaped control characters are
            // found where they are; a text that ends early is explained by its structure.
            if (error == simdjson::UTF8_ERROR || error == simdjson::UNESCAPED_CHARS) {
                failAtPointer(foundation::json::locateReaderError(error, {text_.data(), text_.size()}), reason);
            }
            failStructure("not a JSON document: " + reason);
        }
        document_ = &document;
        // The reader's first pass has read the whole text to index it, and
        // the second reads it again from the start: until then the pages
        // of a mapped file need take no memory (they come back from the
        // file cache, without being cleared or copied, as the second pass
        // reaches them, and go again behind it).
        text_.releaseAll();
        od::object top;
        if (auto const error = document.get_object().get(top)) {
            if (error == simdjson::INCORRECT_TYPE) {
                failAtPointer(firstNonSpace(), "a graph file must hold one JSON object");
            }
            check(error, document, "the graph");
        }

        bool sawNodes = false;
        for (auto fieldResult : top) {
            od::field field;
            check(std::move(fieldResult).get(field), document, "a member of the graph");
            std::string_view key;
            key = readKey(field, document, "a member name");
            od::value value = field.value();
            if (key == "nodes") {
                if (sawNodes) {
                    failAt(value, "the graph has two \"nodes\" members");
                }
                readNodes(value);
                sawNodes = true;
                nodesRead_ = true;
            } else if (key == "edges") {
                readEdges(value);
            } else if (key == "format") {
                std::string_view format = readString(value, "format");
                if (format != "depattr-graph") {
                    failAt(value, "\"format\" must be \"depattr-graph\"");
                }
            } else if (key == "version") {
                std::uint64_t version = 0;
                if (value.get_uint64().get(version) != simdjson::SUCCESS) {
                    failAt(value, "\"version\" must be the number 1");
                }
                if (version != 1) {
                    failAt(value, "unsupported graph-file version " + std::to_string(version) + " (expected 1)");
                }
            } else {
                failAt(value, "unknown member \"" + std::string(key) + "\" in the graph");
            }
        }
        if (char const* rest = nullptr; document.current_location().get(rest) == simdjson::SUCCESS) {
            // Text that ends early can look like this too: the scan tells which it is.
            failStructure("unexpected text after the graph", rest);
        }

        if (!sawNodes) {
            fail(0, 0, "the graph has no \"nodes\" member");
        }
        for (auto const& edge : pendingEdges_) {
            builder_.addDependency(resolve(edge.from), resolve(edge.to), edge.relationship);
        }
    }

    // An edge's end as the file names it: the ID's text (a view into the
    // file, or into the reader's buffer when it holds escapes), where it
    // stands, and the ID's hash in the node index. ASCII IDs, the usual kind,
    // are looked up from their bytes without being widened.
    struct EdgeEnd {
        std::string_view id;
        char const* where = nullptr;
        std::uint64_t hash = 0;
        bool ascii = true;
    };

    static EdgeEnd edgeEnd(std::string_view id, char const* where) {
        bool const ascii =
            std::all_of(id.begin(), id.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
        return {id, where, ascii ? detail::NodeIndex::hashOfAscii(id) : detail::NodeIndex::hashOf(toUtf16(id)), ascii};
    }

    // The ID index the edge ends are looked up in: this reader's, or the one
    // of the reader it reads edges beside.
    detail::NodeIndex const& index() const noexcept {
        return sharedIndex_ != nullptr ? *sharedIndex_ : builder_.index();
    }

    std::optional<std::size_t> find(EdgeEnd const& end) const {
        auto const& index = this->index();
        return end.ascii ? index.findAscii(end.id, end.hash) : index.find(toUtf16(end.id), end.hash);
    }
    struct PendingEdge {
        EdgeEnd from;
        EdgeEnd to;
        Type relationship;
    };

    std::size_t resolve(EdgeEnd const& end) const {
        auto const index = find(end);
        if (!index) {
            failDangling(end);
        }
        return *index;
    }

    [[noreturn]] void failDangling(EdgeEnd const& end) const {
        failAtPointer(end.where, "edge end \"" + std::string(end.id) + "\" is not a node of the graph");
    }

    void checkWhole() const {
        try {
            text_.checkWhole();
        } catch (fl::filesystem::FileSystemError const& error) {
            throw unreadable(fileName_, error.reason());
        }
    }

    [[noreturn]] void fail(std::size_t line, std::size_t column, std::string const& reason) const {
        throw GraphFileError(fileName_, line, column, reason);
    }

    [[noreturn]] void failAtPointer(char const* where, std::string const& reason) const {
        if (quietErrors_) {
            throw NotInSlices{};  // the reader that reads the whole document tells what and where
        }
        if (where == nullptr || where < text_.data() || where > text_.data() + text_.size()) {
            fail(0, 0, reason);
        }
        auto const [line, column] = position(where);
        fail(line, column, reason);
    }

    // Where a value starts, or for arrays, objects and the document where the
    // reader stands now, as a pointer into the text.
    template <class Json>
    char const* whereIs(Json& json) const {
        if constexpr (std::is_same_v<Json, od::value>) {
            return json.raw_json_token().data();
        } else {
            char const* where = nullptr;
            if (document_ == nullptr || document_->current_location().get(where) != simdjson::SUCCESS) {
                return nullptr;
            }
            return where;
        }
    }

    template <class Json>
    [[noreturn]] void failAt(Json& json, std::string const& reason) const {
        failAtPointer(whereIs(json), reason);
    }

    // Fails on an error of the JSON reader; `what` names the value being read.
    // Text that ends too early or holds stray text after the graph is located
    // where that happens, not where the reader happened to stand.
    template <class Json>
    void check(simdjson::error_code error, Json& json, std::string_view what) const {
        if (error == simdjson::SUCCESS) {
            return;
        }
        if (error == simdjson::INCORRECT_TYPE) {
            failAt(json, std::string(what) + " has the wrong type");
        }
        // The reader's own error (which differs between its checked and
        // unchecked builds) is the last resort: text that ends early or that
        // does not balance is the likelier cause, and is reported where it is.
        failStructure(std::string(what) + ": " + foundation::json::describeReaderError(error), whereIs(json));
    }

    char const* firstNonSpace() const {
        char const* p = text_.data();
        char const* const end = p + text_.size();
        while (p < end && (*p == ' ' || *p == '\n' || *p == '\r' || *p == '\t')) {
            ++p;
        }
        return p;
    }

    // Explains a text whose brackets do not balance: a scan that skips strings
    // finds where the graph's object ends. Text after it is stray; a text that
    // runs out first ended early. Runs only on the way to an error.
    [[noreturn]] void failStructure(std::string const& fallback, char const* fallbackWhere = nullptr) const {
        if (quietErrors_) {
            throw NotInSlices{};
        }
        char const* p = firstNonSpace();
        char const* const end = text_.data() + text_.size();
        if (p == end) {
            failAtPointer(p, "the file is empty: a graph file holds one JSON object");
        }
        std::size_t depth = 0;
        bool inString = false;
        for (; p < end; ++p) {
            char const c = *p;
            if (inString) {
                if (c == '\\') {
                    ++p;
                } else if (c == '"') {
                    inString = false;
                }
                continue;
            }
            if (c == '"') {
                inString = true;
            } else if (c == '{' || c == '[') {
                ++depth;
            } else if (c == '}' || c == ']') {
                if (depth == 0) {
                    failAtPointer(p, std::string("unmatched '") + c + "'");
                }
                if (--depth == 0) {
                    ++p;
                    break;
                }
            } else if (depth == 0 && c != ' ' && c != '\n' && c != '\r' && c != '\t') {
                failAtPointer(p, "a graph file must hold one JSON object");
            }
        }
        if (depth > 0 || inString) {
            failAtPointer(end,
                          inString ? "the text ends inside a string" : "the text ends before the graph is complete");
        }
        for (; p < end; ++p) {
            if (*p != ' ' && *p != '\n' && *p != '\r' && *p != '\t') {
                failAtPointer(p, "unexpected text after the graph");
            }
        }
        failAtPointer(fallbackWhere, fallback);
    }

    // A member name, taken as it stands in the file when it has no escapes.
    template <class Json>
    std::string_view readKey(od::field& field, Json& json, std::string_view what) const {
        char const* const begin = field.key().raw();
        char const* end = begin;
        while (*end != '"' && *end != '\\') {
            ++end;  // the reader's first pass has made sure that the name is closed
        }
        if (*end == '"') {
            return {begin, static_cast<std::size_t>(end - begin)};
        }
        std::string_view key;
        check(field.unescaped_key().get(key), json, what);
        return key;
    }

    // A string value. One without escapes (nearly all of them) is taken as it
    // stands in the file, without a copy into the reader's string buffer.
    std::string_view readString(od::value& value, std::string_view what) {
        std::string_view const token = value.raw_json_token();
        if (!token.empty() && token.front() == '"') {
            std::size_t const close = token.find_last_of('"');
            if (close > 0) {
                std::string_view const inner = token.substr(1, close - 1);
                od::raw_json_string raw;
                if (inner.find('\\') == std::string_view::npos &&
                    value.get_raw_json_string().get(raw) == simdjson::SUCCESS) {
                    return inner;
                }
            }
        }
        std::string_view text;
        if (auto const error = value.get_string().get(text)) {
            failAt(value, "\"" + std::string(what) + "\"" +
                              (error == simdjson::INCORRECT_TYPE
                                   ? std::string(" must be a string")
                                   : ": " + std::string(foundation::json::describeReaderError(error))));
        }
        return text;
    }

    bool readBool(od::value& value, std::string_view what) {
        bool flag = false;
        if (value.get_bool().get(flag) != simdjson::SUCCESS) {
            failAt(value, "\"" + std::string(what) + "\" must be true or false");
        }
        return flag;
    }

    static bool needsNormalising(std::string_view path) {
        return path == "." || path == ".." || path.starts_with("./") || path.starts_with("../") ||
               path.find("/./") != std::string_view::npos || path.find("/../") != std::string_view::npos ||
               path.ends_with("/.") || path.ends_with("/..") || path.find("//") != std::string_view::npos;
    }

    std::u16string resolvePath(std::string_view path) const {
        if (path.empty() || baseFolder_.empty()) {
            return toUtf16(path);
        }
        if (path.front() != '/' && !needsNormalising(path)) {
            // One string, made at its final size: the prefix, then the path widened.
            std::u16string resolved;
            resolved.reserve(basePrefix_.size() + path.size());
            resolved += basePrefix_;
            for (char const c : path) {
                if (static_cast<unsigned char>(c) >= 0x80) {
                    return basePrefix_ + toUtf16(path);
                }
                resolved += static_cast<char16_t>(c);
            }
            return resolved;
        }
        std::filesystem::path const asPath(std::u8string(path.begin(), path.end()));
        if (asPath.is_absolute()) {
            return toUtf16(path);
        }
        auto const resolved = (baseFolder_ / asPath).lexically_normal().u8string();
        return toUtf16(std::string_view(reinterpret_cast<char const*>(resolved.data()), resolved.size()));
    }

    void readNodes(od::value& nodes) {
        od::array array;
        if (nodes.get_array().get(array) != simdjson::SUCCESS) {
            failAt(nodes, "\"nodes\" must be an array");
        }
        // One structural pass to size the tables, so they never rehash.
        std::size_t count = 0;
        if (array.count_elements().get(count) == simdjson::SUCCESS) {
            builder_.reserve(count);
            nodeStarts_.reserve(count);
            if (options_.positions != nullptr) {
                options_.positions->reset(fileName_, count);
            }
        }
        text_.releaseAll();  // the pass has touched every page of the array
        for (auto elementResult : array) {
            od::value element;
            check(std::move(elementResult).get(element), array, "a node");
            readNode(element);
            elementRead(element);
        }
    }

    void readNode(od::value& element) {
        char const* const nodeStart = element.raw_json_token().data();
        od::object object;
        if (element.get_object().get(object) != simdjson::SUCCESS) {
            failAt(element, "a node must be an object");
        }
        char const* locationStart = nullptr;

        NodeData data;
        std::uint64_t idHash = 0;
        bool haveId = false;
        std::optional<Type> type;
        std::optional<bool> isFile;
        bool haveName = false;
        bool haveLocation = false;
        std::optional<std::string_view> rawPath;
        std::vector<std::string_view>& rawLocation = rawLocation_;  // reused: one allocation for all nodes
        rawLocation.clear();

        for (auto fieldResult : object) {
            od::field field;
            check(std::move(fieldResult).get(field), object, "a member of a node");
            std::string_view key;
            key = readKey(field, object, "a member name");
            od::value value = field.value();
            if (key == "id") {
                data.id = toUtf16(readString(value, "id"));
                idHash = detail::NodeIndex::hashOf(data.id);
                builder_.index().prefetchSlot(idHash);  // wanted when the node is added, after its other members
                haveId = true;
            } else if (key == "type") {
                std::string_view const name = readString(value, "type");
                type = Type::fromName(name);
                if (!type || !isNodeType(*type)) {
                    failAt(value, "unknown node type \"" + std::string(name) +
                                      "\" (expected file, function, package, product, "
                                      "project or derived)");
                }
            } else if (key == "name") {
                data.name = toUtf16(readString(value, "name"));
                haveName = true;
            } else if (key == "path") {
                rawPath = readString(value, "path");
                data.path = resolvePath(*rawPath);
            } else if (key == "location") {
                locationStart = value.raw_json_token().data();
                readLocation(value, rawLocation);
                haveLocation = true;
            } else if (key == "file") {
                isFile = readBool(value, "file");
            } else if (key == "resolved") {
                data.resolved = readBool(value, "resolved");
            } else if (key == "properties") {
                readProperties(value, data.properties);
            } else {
                failAt(value, "unknown member \"" + std::string(key) + "\" in a node");
            }
        }

        if (!haveId || data.id.empty()) {
            failAtPointer(nodeStart, "a node needs a non-empty \"id\"");
        }
        if (!type) {
            failAtPointer(nodeStart, "a node needs a \"type\"");
        }
        data.type = *type;
        data.isFile = isFile.value_or(*type == Type::FILE() || *type == Type::DERIVED());
        if (!haveName) {
            data.name = data.id;
        }
        // The first location entry of file-like and function nodes is a path.
        bool const firstEntryIsPath = data.isFile || *type == Type::FUNCTION();
        data.location.reserve(rawLocation.size());
        for (std::size_t i = 0; i < rawLocation.size(); ++i) {
            data.location.push_back(i == 0 && firstEntryIsPath ? resolvePath(rawLocation[i]) : toUtf16(rawLocation[i]));
        }
        if (!haveLocation && data.isFile && !data.path.empty()) {
            // The path is the one location entry: kept once.
            data.location.push_back(std::move(data.path));
            data.pathIsFirstLocation = true;
        } else if (!rawPath && *type == Type::FUNCTION() && !data.location.empty()) {
            // A function without a path of its own is in the file its first
            // location entry names: that is its path.
            data.pathIsFirstLocation = true;
        }
        checkKindNeeds(data, nodeStart, locationStart);

        try {
            builder_.addNode(std::move(data), idHash);
        } catch (DuplicateNodeError const& duplicate) {
            auto const& first = *builder_.node(duplicate.existingIndex());
            auto const [line, column] = position(nodeStarts_[duplicate.existingIndex()]);
            failAtPointer(nodeStart, "duplicate node ID \"" + idText(first.getID()) + "\" (first defined at line " +
                                         std::to_string(line) + ", column " + std::to_string(column) + ")");
        }
        nodeStarts_.push_back(nodeStart);
        if (options_.positions != nullptr) {
            options_.positions->add(static_cast<std::uint64_t>(nodeStart - text_.data()));
        }
    }

    // What the built-in analyzers read from a node of each kind must be there:
    // a function's file and name, a package's unique ID, a derived file's path.
    // Checked here, so that a graph that lacks them is reported at the node,
    // never by an analyzer failing halfway through an analysis.
    void checkKindNeeds(NodeData const& data, char const* nodeStart, char const* locationStart) const {
        char const* const where = locationStart != nullptr ? locationStart : nodeStart;
        if (data.type == Type::FUNCTION()) {
            if (data.location.size() < 2 || data.location[0].empty() || data.location[1].empty()) {
                failAtPointer(where,
                              "a function node needs a \"location\" whose first "
                              "two entries are the path of "
                              "its file and the function's name, neither empty");
            }
        } else if (data.type == Type::PACKAGE()) {
            if (data.location.size() < 4) {
                failAtPointer(where,
                              "a package node needs a \"location\" of four "
                              "entries, the fourth its unique ID");
            }
            if (!isCanonicalUuid(data.location[3])) {
                failAtPointer(where,
                              "the fourth \"location\" entry of a package node must be "
                              "a UUID such as "
                              "\"0f8fad5b-d9cb-469f-a165-70867728950e\", not \"" +
                                  idText(data.location[3]) + "\"");
            }
        } else if (data.type == Type::DERIVED()) {
            if (data.location.empty() || data.location[0].empty()) {
                failAtPointer(where,
                              "a derived node needs a \"path\" (or a "
                              "\"location\" whose first entry is one)");
            }
        }
    }

    static bool isCanonicalUuid(std::u16string const& text) {
        if (text.size() != 36) {
            return false;
        }
        for (std::size_t i = 0; i < text.size(); ++i) {
            char16_t const c = text[i];
            bool const dash = i == 8 || i == 13 || i == 18 || i == 23;
            bool const hex = (c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F');
            if (dash ? c != u'-' : !hex) {
                return false;
            }
        }
        return true;
    }

    // Called for each node and edge read: every few thousand, the memory of
    // the text well before the element is let go, and progress is reported.
    template <class Json>
    void elementRead(Json& json) {
        if (++sinceProgress_ < elementsPerProgressReport) {
            return;
        }
        sinceProgress_ = 0;
        textRead(whereIs(json));
    }

    // The text before `where` is read: most of its memory is let go, and
    // progress is reported.
    void textRead(char const* where) {
        if (where == nullptr || where < text_.data() || where > text_.data() + text_.size()) {
            return;
        }
        auto const offset = static_cast<std::size_t>(where - text_.data());
        // The edges waiting to be resolved still view the text a little way back.
        text_.releaseBefore(where - std::min(offset, textKeptBehind));
        if (options_.progress) {
            options_.progress(offset, text_.size());
        }
    }

    void readLocation(od::value& value, std::vector<std::string_view>& entries) {
        od::array array;
        if (value.get_array().get(array) != simdjson::SUCCESS) {
            failAt(value, "\"location\" must be an array of strings");
        }
        for (auto entryResult : array) {
            od::value entry;
            check(std::move(entryResult).get(entry), array, "a location entry");
            entries.push_back(readString(entry, "location entry"));
        }
    }

    // The properties that the analyzers read as flags: set only by the exact
    // text "true".
    static bool isFlag(std::string_view key) {
        return key == "futureRelease" || key == "invalidFormat" || key == "syntaxError" || key == "isModelInPackage";
    }

    // Property values are text. true and false are taken as the words; arrays
    // and objects are kept as their JSON text (for properties holding JSON).
    void readProperties(od::value& value, Properties& properties) {
        od::object object;
        if (value.get_object().get(object) != simdjson::SUCCESS) {
            failAt(value, "\"properties\" must be an object");
        }
        for (auto fieldResult : object) {
            od::field field;
            check(std::move(fieldResult).get(field), object, "a property");
            std::string_view key;
            key = readKey(field, object, "a property name");
            od::value property = field.value();
            od::json_type kind = od::json_type::null;
            check(property.type().get(kind), property, "property \"" + std::string(key) + "\"");
            bool const isCycleList = key == "circularReferences";
            if (isCycleList && kind != od::json_type::array) {
                failAt(property, "property \"circularReferences\" must be an array of strings");
            }
            std::u16string text;
            switch (kind) {
            case od::json_type::string: {
                auto const value = readString(property, key);
                if (options_.warning && isFlag(key) && value != "true" && value != "false") {
                    auto const [line, column] = position(property.raw_json_token().data());
                    warn(line, column,
                         "property \"" + std::string(key) + "\" is \"" + foundation::printable::escapeControls(value) +
                             "\", which counts as not set: a flag is \"true\" or \"false\"");
                }
                text = toUtf16(value);
                break;
            }
            case od::json_type::boolean:
                text = readBool(property, key) ? u"true" : u"false";
                break;
            case od::json_type::array: {
                od::array array;
                check(property.get_array().get(array), property, "property \"" + std::string(key) + "\"");
                std::string_view raw;
                check(array.raw_json().get(raw), array, "property \"" + std::string(key) + "\"");
                if (isCycleList) {
                    checkCycleList(raw);
                }
                text = toUtf16(raw);
                break;
            }
            case od::json_type::object: {
                od::object inner;
                check(property.get_object().get(inner), property, "property \"" + std::string(key) + "\"");
                std::string_view raw;
                check(inner.raw_json().get(raw), inner, "property \"" + std::string(key) + "\"");
                text = toUtf16(raw);
                break;
            }
            default:
                failAt(property,
                       "property \"" + std::string(key) + "\" must be a string, true, false, an array or an object");
            }
            properties.insert_or_assign(toUtf16(key), std::move(text));
        }
    }

    // Every cycle in "circularReferences" is one string: the circular-reference
    // analyzer turns each element into text, and anything else fails there.
    // The array's own text is read once more by a small parser, which points
    // at the first element of another kind.
    void checkCycleList(std::string_view raw) {
        simdjson::padded_string const copy(raw);
        od::document document;
        od::array array;
        if (cycleParser_.iterate(copy).get(document) != simdjson::SUCCESS ||
            document.get_array().get(array) != simdjson::SUCCESS) {
            failAtPointer(raw.data(), "property \"circularReferences\" must be an array of strings");
        }
        for (auto elementResult : array) {
            od::value element;
            od::json_type kind = od::json_type::null;
            if (std::move(elementResult).get(element) != simdjson::SUCCESS ||
                element.type().get(kind) != simdjson::SUCCESS) {
                failAtPointer(raw.data(), "property \"circularReferences\" must be an array of strings");
            }
            if (kind != od::json_type::string) {
                auto const offset = element.raw_json_token().data() - copy.data();
                failAtPointer(raw.data() + offset,
                              "each element of \"circularReferences\" must be a string "
                              "describing one cycle");
            }
        }
    }

    void readEdges(od::value& edges) {
        od::array array;
        if (edges.get_array().get(array) != simdjson::SUCCESS) {
            failAt(edges, "\"edges\" must be an array");
        }
        // The edges are not counted ahead, as the nodes are: a counting pass
        // would bring every page of the array back beside the whole graph,
        // which takes more memory than the list of edges growing does.
        try {
            for (auto elementResult : array) {
                od::value element;
                check(std::move(elementResult).get(element), array, "an edge");
                readEdge(element);
                elementRead(element);
            }
        } catch (GraphFileError const&) {
            // An edge still waiting may hold an earlier error: that one is reported.
            resolveWaitingEdges();
            throw;
        }
        resolveWaitingEdges();
    }

    // Edge ends are resolved some edges after they are read, so that the
    // memory accesses of one lookup overlap the reading of the next edges
    // rather than stalling it: a large graph's node index is far bigger than
    // the processor's caches. The stages: when an end is read, its hash slot
    // is prefetched; keyViewStage edges later, the view of the key in that
    // slot; keyCharsStage edges later, the key's characters; when the ring
    // is full the edge is resolved, by then mostly from cache. Edges usually
    // come grouped by their upstream node, whose end is looked up once per group.
    static constexpr std::size_t keyViewStage = 16;
    static constexpr std::size_t keyCharsStage = 32;
    static constexpr std::size_t waitingCapacity = 48;

    struct WaitingEdge {
        EdgeEnd upstream;
        bool sameUpstream = false;  // as the edge before it: resolved already
        EdgeEnd downstream;
        Type relationship = Type::CALL();
    };

    WaitingEdge& waiting(std::size_t age) { return waiting_[(waitingStart_ + age) % waitingCapacity]; }

    void prefetch(WaitingEdge const& edge, void (detail::NodeIndex::*stage)(std::uint64_t) const noexcept) const {
        auto const& index = this->index();
        if (!edge.sameUpstream) {
            (index.*stage)(edge.upstream.hash);
        }
        (index.*stage)(edge.downstream.hash);
    }

    void addWaitingEdge(EdgeEnd const& upstream, EdgeEnd const& downstream, Type relationship) {
        if (waitingCount_ == waitingCapacity) {
            resolveOldestWaitingEdge();
        }
        WaitingEdge& edge = waiting(waitingCount_++);
        edge.sameUpstream = haveLastUpstream_ && upstream.id == lastUpstream_.id;
        edge.upstream = upstream;
        edge.downstream = downstream;
        edge.relationship = relationship;
        lastUpstream_ = upstream;
        haveLastUpstream_ = true;
        prefetch(edge, &detail::NodeIndex::prefetchSlot);
        if (waitingCount_ > keyViewStage) {
            prefetch(waiting(waitingCount_ - 1 - keyViewStage), &detail::NodeIndex::prefetchKeyView);
        }
        if (waitingCount_ > keyCharsStage) {
            prefetch(waiting(waitingCount_ - 1 - keyCharsStage), &detail::NodeIndex::prefetchKeyChars);
        }
    }

    void resolveOldestWaitingEdge() {
        WaitingEdge& edge = waiting(0);
        if (!edge.sameUpstream) {
            auto const upstream = find(edge.upstream);
            if (!upstream) {
                waitingCount_ = 0;  // the load fails: nothing else waiting matters
                failDangling(edge.upstream);
            }
            resolvedUpstream_ = *upstream;
        }
        auto const downstream = find(edge.downstream);
        if (!downstream) {
            waitingCount_ = 0;
            failDangling(edge.downstream);
        }
        if (collected_ != nullptr) {
            collected_->push_back({static_cast<std::uint32_t>(resolvedUpstream_),
                                   static_cast<std::uint32_t>(*downstream), edge.relationship});
        } else {
            builder_.addDependency(resolvedUpstream_, *downstream, edge.relationship);
        }
        waitingStart_ = (waitingStart_ + 1) % waitingCapacity;
        --waitingCount_;
    }

    void resolveWaitingEdges() {
        while (waitingCount_ > 0) {
            resolveOldestWaitingEdge();
        }
    }

    void readEdge(od::value& element) {
        char const* const edgeStart = element.raw_json_token().data();
        od::object object;
        if (element.get_object().get(object) != simdjson::SUCCESS) {
            failAt(element, "an edge must be an object");
        }
        std::optional<EdgeEnd> from;
        std::optional<EdgeEnd> to;
        std::optional<Type> relationship;
        for (auto fieldResult : object) {
            od::field field;
            check(std::move(fieldResult).get(field), object, "a member of an edge");
            std::string_view key;
            key = readKey(field, object, "a member name");
            od::value value = field.value();
            if (key == "from" || key == "to") {
                char const* const where = value.raw_json_token().data();
                auto& end = key == "from" ? from : to;
                end = edgeEnd(readString(value, key), where);
            } else if (key == "type") {
                std::string_view const name = readString(value, "type");
                relationship = Type::fromName(name);
                if (!relationship || isNodeOnlyType(*relationship)) {
                    failAt(value, "unknown relationship type \"" + std::string(name) +
                                      "\" (expected derived, call, inheritance, "
                                      "reference or requirement)");
                }
            } else {
                failAt(value, "unknown member \"" + std::string(key) + "\" in an edge");
            }
        }
        if (!from || !to || !relationship) {
            failAtPointer(edgeStart, "an edge needs \"from\", \"to\" and \"type\"");
        }
        if (nodesRead_) {
            addWaitingEdge(*from, *to, *relationship);
        } else {
            // Edges written before the nodes wait until every node is known.
            pendingEdges_.push_back({*from, *to, *relationship});
        }
    }

    static bool isNodeOnlyType(Type type) {
        return type == Type::FILE() || type == Type::FUNCTION() || type == Type::PACKAGE() || type == Type::PRODUCT() ||
               type == Type::PROJECT();
    }
    static bool isNodeType(Type type) { return isNodeOnlyType(type) || type == Type::DERIVED(); }

    static std::string idText(std::u16string const& id) {
        return boost::locale::conv::utf_to_utf<char>(id.data(), id.data() + id.size());
    }

    TextPosition position(char const* where) const {
        return foundation::source::positionAt(std::string_view(text_.data(), text_.size()),
                                              static_cast<std::size_t>(where - text_.data()));
    }

    static constexpr std::size_t elementsPerProgressReport = 4096;
    static constexpr std::size_t textKeptBehind = std::size_t{1} << 20;

    GraphText text_;
    std::string const& fileName_;
    std::filesystem::path const& baseFolder_;
    GraphFileOptions options_;
    std::size_t sinceProgress_ = 0;
    od::parser cycleParser_;
    std::u16string basePrefix_;  // the normalised base folder with a trailing '/'
    GraphBuilder builder_;
    std::vector<char const*> nodeStarts_;        // where each node's text begins, by node index
    std::vector<std::string_view> rawLocation_;  // the location entries of the node being read
    bool nodesRead_ = false;
    std::vector<PendingEdge> pendingEdges_;
    EdgeEnd lastUpstream_;  // the upstream end of the edge read last
    bool haveLastUpstream_ = false;
    std::size_t resolvedUpstream_ = 0;                  // the node of the upstream end resolved last
    std::array<WaitingEdge, waitingCapacity> waiting_;  // a ring of edges whose ends are not yet resolved
    std::size_t waitingStart_ = 0;
    std::size_t waitingCount_ = 0;
    od::document* document_ = nullptr;
    od::parser sliceParser_;
    struct HeldWarning {
        std::size_t line;
        std::size_t column;
        std::string message;
    };
    std::optional<std::vector<HeldWarning>> heldWarnings_;  // while the file is read in slices
    // For a reader beside another: the index its edge ends are looked up in,
    // where its edges go, and errors that only end its reading.
    struct ResolvedEdge {
        std::uint32_t upstream;
        std::uint32_t downstream;
        Type relationship;
    };
    detail::NodeIndex const* sharedIndex_ = nullptr;
    std::vector<ResolvedEdge>* collected_ = nullptr;
    bool quietErrors_ = false;
    std::vector<char> sliceCopy_;
};

}  // namespace

std::shared_ptr<Graph const> parseGraph(std::string_view text, std::string const& fileName,
                                        std::filesystem::path const& baseFolder) {
    return GraphReader(GraphText(text), fileName, baseFolder).read();
}

std::shared_ptr<Graph const> loadGraphFile(std::filesystem::path const& path, GraphFileOptions const& options) {
    std::string const fileName = path.string();
    GraphText content;
    try {
        fl::filesystem::RegularFile const file(fileName, maxGraphFileBytes);
        if (file.size() >= smallestMappedGraphFile) {
            try {
                content = GraphText(std::make_unique<fl::filesystem::MappedFile>(file, simdjson::SIMDJSON_PADDING));
            } catch (fl::filesystem::FileSystemError const&) {
                // A file that cannot be mapped is read as a small one is.
            }
        }
        if (content.data() == nullptr) {
            try {
                content = GraphText(file.size());
            } catch (std::bad_alloc const&) {
                throw unreadable(fileName, "not enough memory");
            }
            file.read(content.data());
        }
    } catch (fl::filesystem::FileSystemError const& error) {
        throw unreadable(fileName, error.reason());
    }
    std::error_code ignored;
    auto const folder = std::filesystem::absolute(path, ignored).parent_path();
    return GraphReader(std::move(content), fileName, folder, options).read();
}

void NodePositions::reset(std::string file, std::size_t expectedNodes) {
    file_ = std::move(file);
    offsets_.clear();
    offsets_.reserve(expectedNodes);
}

std::optional<TextPosition> NodePositions::positionOf(Graph const& graph, Node const& node) const {
    std::size_t index = 0;
    for (auto const& candidate : graph.getNodes()) {
        if (*candidate == node) {
            break;
        }
        ++index;
    }
    if (index >= offsets_.size()) {
        return std::nullopt;
    }
    std::ifstream in(file_, std::ios::binary);
    if (!in) {
        return std::nullopt;
    }
    TextPosition position{1, 1};
    std::array<char, 1 << 16> chunk{};
    for (std::uint64_t left = offsets_[index]; left > 0 && in;) {
        in.read(chunk.data(), static_cast<std::streamsize>(std::min<std::uint64_t>(left, chunk.size())));
        auto const got = static_cast<std::size_t>(in.gcount());
        position = foundation::source::advance(position, std::string_view(chunk.data(), got));
        left -= got;
    }
    return position;
}

}  // namespace dependency::graph
