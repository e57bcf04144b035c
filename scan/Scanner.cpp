#include "scan/Scanner.hpp"

#include "platform/codeanalysis/CodeAnalysis.hpp"
#include "platform/graph/GraphBuilder.hpp"
#include "platform/graph/GraphWriter.hpp"
#include "platform/packages/PackageDescriptor.hpp"
#include "platform/toolbox/ToolboxFinder.hpp"
#include "scan/BuiltinNames.hpp"
#include "scan/ProjectFile.hpp"
#include "scan/detail/FileFacts.hpp"
#include "scan/detail/NameTable.hpp"
#include "scan/detail/Walk.hpp"

#include <boost/uuid/uuid_io.hpp>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <climits>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <deque>
#include <fstream>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <sstream>
#include <thread>
#include <tuple>
#include <unordered_map>

namespace fs = std::filesystem;
namespace graph = dependency::graph;

namespace depattr::scan {

using detail::FileFacts;
using detail::FolderKind;
using detail::NameUse;
using detail::relativeText;
using detail::UseKind;

namespace {

// UTF-8 to UTF-16; names and paths are nearly always ASCII, which is widened without the locale's converter.
std::u16string u16(std::string const& text) {
    if (std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; })) {
        return std::u16string(text.begin(), text.end());
    }
    return fs::path(text).u16string();
}
std::u16string u16(fs::path const& path) {
    return u16(path.native());
}
std::string u8(std::u16string const& text) {
    return fs::path(text).string();
}

std::string jsonArray(std::vector<std::string> const& items) {
    std::string out = "[";
    for (std::size_t i = 0; i < items.size(); ++i) {
        out += i == 0 ? "" : ",";
        graph::appendJsonString(out, items[i]);
    }
    return out + "]";
}

void appendNumber(std::u16string& out, std::uint32_t value) {
    char digits[16];
    auto const end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    out.append(digits, end);
}

std::string place(std::uint32_t line, std::uint32_t column) {
    return std::to_string(line) + ":" + std::to_string(column);
}

// One parsed code file.
struct Parsed {
    bool readable = false;
    bool syntaxError = false;
    std::string message;  // read error or syntax error
    std::uint32_t line = 0, column = 0;
    std::u16string owner;
    FileFacts facts;
};

// What a name resolves to.
struct Target {
    enum Kind { None, Tree, Product, Builtin } kind = None;
    int file = -1;            // Tree: index into the walk's files
    std::size_t product = 0;  // Product: index into the catalogue
    fs::path productFile;     // Product: the defining file
    std::u16string entry;     // location entry 1
};

struct ClassInfo {
    int classdefFile = -1;  // a classdef file
    int folder = -1;        // an @Cls folder
    int constructorFile = -1;
    std::map<std::u16string, std::pair<int, bool>, std::less<>> methods;  // name -> (file, static)
};

// Functions of the products' folders, by name, found by their file names.
struct ProductFunctions {
    std::unordered_map<std::u16string, std::pair<std::size_t, fs::path>> byName;  // "f", "pkg.f", "Cls"
    std::unordered_map<std::u16string, bool> packages;                            // "pkg", "pkg.sub"
};

void indexProductFolder(ProductFunctions& index, std::size_t product, fs::path const& root) {
    struct Pending {
        fs::path path;
        std::u16string package;  // qualified package of a +folder
        bool functions;          // holds functions (ordinary or package folder)
    };
    std::vector<Pending> pending{{root, u"", true}};
    std::set<std::pair<dev_t, ino_t>> seen;
    while (!pending.empty()) {
        auto const current = pending.back();
        pending.pop_back();
        std::error_code error;
        struct stat st {};
        if (::stat(current.path.c_str(), &st) != 0 || !seen.insert({st.st_dev, st.st_ino}).second) {
            continue;
        }
        std::vector<fs::path> entries;
        for (fs::directory_iterator it(current.path, error), end; !error && it != end; it.increment(error)) {
            entries.push_back(it->path());
        }
        std::sort(entries.begin(), entries.end());
        for (auto it = entries.rbegin(); it != entries.rend(); ++it) {
            auto const& entry = *it;
            auto const name = entry.filename().u16string();
            std::error_code statError;
            if (fs::is_directory(entry, statError)) {
                if (name.empty() || name[0] == u'.' || name == u"private") {
                    continue;
                }
                if (name[0] == u'+') {
                    auto const qualified =
                        current.package.empty() ? name.substr(1) : current.package + u"." + name.substr(1);
                    index.packages.emplace(qualified, true);
                    pending.push_back({entry, qualified, true});
                } else if (name[0] == u'@') {
                    auto const cls = current.package.empty() ? name.substr(1) : current.package + u"." + name.substr(1);
                    index.byName.try_emplace(cls, product, entry / (name.substr(1) + u".qx"));
                } else if (current.package.empty()) {
                    pending.push_back({entry, u"", true});
                }
            } else if (entry.extension() == ".qx") {
                auto const stem = entry.stem().u16string();
                auto const qualified = current.package.empty() ? stem : current.package + u"." + stem;
                index.byName.try_emplace(qualified, product, entry);
            }
        }
    }
}

// A code file whose path is longer than the system takes in one call (deep in nested folders): read here, a part of
// the path at a time, and parsed from memory (such files bypass the result cache).
std::shared_ptr<ca::AnalysisResult const> analyzeLongPath(fs::path const& path) {
    auto unreadable = [&](std::string const& reason) {
        return ca::FileReadError("cannot read the code file '" + path.string() + "': " + reason);
    };
    int const fd = detail::openPath(path, O_RDONLY | O_NONBLOCK);
    if (fd < 0) {
        throw unreadable(std::strerror(errno));
    }
    std::unique_ptr<int, void (*)(int*)> const closer(new int(fd), [](int* f) {
        ::close(*f);
        delete f;
    });
    struct stat status {};
    if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        throw unreadable("not a regular file");
    }
    if (static_cast<std::uintmax_t>(status.st_size) > ca::maxCodeFileBytes) {
        throw unreadable("it holds " + std::to_string(status.st_size) + " bytes, more than the " +
                         std::to_string(ca::maxCodeFileBytes) + " bytes a code file may hold");
    }
    std::string code;
    char buffer[1 << 16];
    for (;;) {
        auto const got = ::read(fd, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            throw unreadable(std::strerror(errno));
        }
        if (got == 0) {
            break;
        }
        if (code.size() + static_cast<std::size_t>(got) > ca::maxCodeFileBytes) {
            throw unreadable("it grew past the bytes a code file may hold");
        }
        code.append(buffer, static_cast<std::size_t>(got));
    }
    return ca::analyzeText(code);
}

bool contains(fs::path const& folder, fs::path const& path) {
    auto const rel = path.lexically_relative(folder);
    return !rel.empty() && *rel.begin() != "..";
}

class Scan {
public:
    explicit Scan(ScanSettings const& settings) : settings_(settings) {}

    ScanResult run();

private:
    void parseAll();
    void readProjects();
    void buildIndex();
    // Imports are tried only for the name as written, never for a name an import made.
    Target resolvePlain(int file, std::u16string const& name, bool useImports = true);
    Target resolveDotted(int file, std::u16string const& name, bool useImports = true);
    Target resolve(int file, NameUse const& use);
    Target fromFile(int file, std::u16string const& name, std::u16string const& entry);
    Target builtinOrNone(std::u16string const& name) const;
    void buildGraph();

    std::u16string const& relOf(int file) const { return relIds_[file]; }
    unsigned threadCount() const {
        return settings_.threads != 0 ? settings_.threads : std::max(1u, std::thread::hardware_concurrency());
    }

    ScanSettings const& settings_;
    fs::path root_;
    ScanResult result_;
    detail::Walk walk_;
    std::vector<Parsed> parsed_;
    std::vector<ProjectFile> projects_;
    std::vector<int> projectFiles_;                                        // walk file index of each project
    std::vector<int> pathFolders_;                                         // folder indices in path order
    std::unordered_map<std::u16string, std::vector<int>> packageFolders_;  // qualified name -> folders
    std::map<std::u16string, ClassInfo, std::less<>> classes_;
    std::unordered_map<std::u16string, std::pair<int, std::u16string>> methodFallback_;
    std::unordered_map<std::u16string, int> pathFunctions_;  // the first on the path: constructor or function file
    std::vector<std::unordered_map<std::u16string, int>> folderFunctions_;  // per folder: stem -> file
    std::shared_ptr<dependency::toolbox::ToolboxFinder> finder_;
    ProductFunctions productFunctions_;
    std::optional<BuiltinNames> builtins_;
    std::vector<std::u16string> relIds_;  // per walked file: its ID, the path relative to the scanned folder
};

void Scan::parseAll() {
    std::vector<int> code;
    for (std::size_t i = 0; i < walk_.files.size(); ++i) {
        if (walk_.files[i].code) {
            code.push_back(static_cast<int>(i));
        }
    }
    parsed_.assign(walk_.files.size(), {});
    std::size_t const total = code.size();
    std::atomic<std::size_t> next{0};
    std::size_t done = 0;
    std::mutex mutex;
    std::condition_variable progressed;
    auto work = [&] {
        auto analyzer = ca::createSingleFileAnalyzer();
        for (std::size_t k = next++; k < total; k = next++) {
            int const file = code[k];
            Parsed& out = parsed_[file];
            try {
                auto const& path = walk_.files[file].path;
                auto const analysis =
                    path.native().size() < PATH_MAX ? analyzer->analyze(u16(path)) : analyzeLongPath(path);
                out.readable = true;
                out.owner = analysis->getOwnerName();
                if (analysis->hasErrors()) {
                    auto const& error = analysis->getErrors().front();
                    out.syntaxError = true;
                    out.message = error.message;
                    out.line = error.line;
                    out.column = error.column;
                } else {
                    out.facts = detail::extractFacts(analysis->getRootNode());
                }
            } catch (std::exception const& error) {
                out.message = error.what();
            }
            {
                std::lock_guard lock(mutex);
                ++done;
            }
            progressed.notify_one();
        }
    };
    unsigned threads = settings_.threads != 0 ? settings_.threads : std::max(1u, std::thread::hardware_concurrency());
    threads = static_cast<unsigned>(std::min<std::size_t>(threads, std::max<std::size_t>(total, 1)));
    std::vector<std::jthread> pool;
    for (unsigned t = 1; t < threads; ++t) {
        pool.emplace_back(work);
    }
    if (settings_.progress) {
        settings_.progress(0, total);
    }
    if (threads <= 1 || settings_.progress == nullptr) {
        work();
    } else {
        std::size_t reported = 0;
        std::unique_lock lock(mutex);
        while (reported < total) {
            progressed.wait(lock, [&] { return done != reported; });
            reported = done;
            lock.unlock();
            settings_.progress(reported, total);
            lock.lock();
        }
    }
    pool.clear();
    if (settings_.progress && (threads <= 1 || settings_.progress == nullptr)) {
        settings_.progress(total, total);
    }

    for (auto const file : code) {
        auto const& p = parsed_[file];
        auto& counts = result_.counts;
        ++counts.codeFiles;
        if (!p.readable) {
            ++counts.unreadable;
            result_.diagnostics.push_back({walk_.files[file].path, 0, 0, "cannot read the code file: " + p.message});
        } else if (p.syntaxError) {
            ++counts.syntaxErrors;
            result_.diagnostics.push_back({walk_.files[file].path, p.line, p.column, "syntax error: " + p.message});
        } else {
            ++counts.parsed;
            counts.functions += p.facts.functions.size();
            // Two definitions of one name in a file: calls reach the first.
            std::map<std::u16string, detail::Position> firstAt;
            for (auto const& definition : p.facts.functions) {
                auto const [it, fresh] = firstAt.emplace(definition.name, definition.at);
                if (!fresh && !definition.isMethod) {
                    result_.diagnostics.push_back(
                        {walk_.files[file].path, definition.at.line, definition.at.column,
                         "function " + u8(definition.name) + " is defined twice in this file (first at " +
                             place(it->second.line, it->second.column) + "); calls reach the first"});
                }
            }
        }
    }
}

void Scan::readProjects() {
    for (std::size_t i = 0; i < walk_.files.size(); ++i) {
        if (!walk_.files[i].project) {
            continue;
        }
        try {
            projects_.push_back(readProjectFile(walk_.files[i].path));
            projectFiles_.push_back(static_cast<int>(i));
        } catch (ProjectFileError const& error) {
            result_.diagnostics.push_back(
                {walk_.files[i].path, error.line(), error.column(), "project file not read: " + error.reason()});
        } catch (std::exception const& error) {
            result_.diagnostics.push_back(
                {walk_.files[i].path, 0, 0, std::string("project file not read: ") + error.what()});
        }
    }
    result_.counts.projects = projects_.size();
}

void Scan::buildIndex() {
    auto const& folders = walk_.folders;
    folderFunctions_.resize(folders.size());
    for (std::size_t f = 0; f < folders.size(); ++f) {
        for (int file : folders[f].codeFiles) {
            folderFunctions_[f].emplace(u16(walk_.files[file].path.stem()), file);
        }
    }

    // The path: the settings', else the path folders of the project files in the scanned folder itself, else
    // every ordinary folder from the top down.
    std::vector<fs::path> explicitPath;
    for (auto const& folder : settings_.pathFolders) {
        explicitPath.push_back((folder.is_absolute() ? folder : root_ / folder).lexically_normal());
    }
    if (explicitPath.empty()) {
        for (std::size_t p = 0; p < projects_.size(); ++p) {
            if (walk_.files[projectFiles_[p]].folder == 0) {
                for (auto const& folder : projects_[p].pathFolders) {
                    explicitPath.push_back(folder.lexically_normal());
                }
            }
        }
    }
    if (explicitPath.empty()) {
        for (std::size_t f = 0; f < folders.size(); ++f) {
            if (folders[f].onDefaultPath) {
                pathFolders_.push_back(static_cast<int>(f));
            }
        }
    } else {
        // A folder of the walk by its path: down from the scanned folder, a name at a time.
        auto findFolder = [&](fs::path const& folder) {
            int found = -1;
            if (folder == root_ || contains(root_, folder)) {
                found = 0;
                for (auto const& part : folder.lexically_relative(root_)) {
                    if (part == "." || part.empty()) {
                        continue;
                    }
                    auto const& subs = folders[found].subfolders;
                    auto const it = std::find_if(subs.begin(), subs.end(),
                                                 [&](int sub) { return folders[sub].name == part.native(); });
                    found = it == subs.end() ? -1 : *it;
                    if (found < 0) {
                        break;
                    }
                }
            }
            return found;
        };
        for (auto const& folder : explicitPath) {
            int const found = findFolder(folder);
            if (found < 0 || folders[found].kind != FolderKind::Ordinary) {
                result_.diagnostics.push_back(
                    {folder, 0, 0, "path folder is not a scanned folder of functions; left off the path"});
            } else if (std::find(pathFolders_.begin(), pathFolders_.end(), found) == pathFolders_.end()) {
                pathFolders_.push_back(found);
            }
        }
    }
    std::vector<bool> onPath(folders.size(), false);
    for (int f : pathFolders_) {
        onPath[f] = true;
    }

    // Packages and classes reachable from the path, in path order.
    std::vector<int> order;  // path folders, each followed by its package and class folders (depth first)
    for (int f : pathFolders_) {
        std::vector<int> pending{f};
        while (!pending.empty()) {
            int const current = pending.back();
            pending.pop_back();
            order.push_back(current);
            auto const& subs = folders[current].subfolders;
            for (auto it = subs.rbegin(); it != subs.rend(); ++it) {
                if (folders[*it].kind == FolderKind::Package || folders[*it].kind == FolderKind::Class) {
                    pending.push_back(*it);
                }
            }
        }
    }
    for (int f : order) {
        auto const& folder = folders[f];
        if (folder.kind == FolderKind::Package) {
            packageFolders_[folder.qualified].push_back(f);
        }
        if (folder.kind == FolderKind::Class) {
            auto& info = classes_[folder.qualified];
            if (info.folder < 0) {
                info.folder = f;
                auto const simple = fs::path(folder.name.substr(1)).u16string();
                for (int file : folder.codeFiles) {
                    auto const stem = u16(walk_.files[file].path.stem());
                    if (stem == simple) {
                        info.constructorFile = file;
                        if (parsed_[file].facts.isClass) {
                            info.classdefFile = file;
                        }
                    } else {
                        info.methods.try_emplace(stem, file, false);
                    }
                }
            }
        }
        if (folder.kind == FolderKind::Ordinary || folder.kind == FolderKind::Package) {
            for (int file : folder.codeFiles) {
                if (!parsed_[file].facts.isClass) {
                    continue;
                }
                auto const stem = u16(walk_.files[file].path.stem());
                auto const qualified = folder.kind == FolderKind::Package ? folder.qualified + u"." + stem : stem;
                auto& info = classes_[qualified];
                if (info.classdefFile < 0 && info.constructorFile < 0) {
                    info.classdefFile = file;
                    info.constructorFile = file;
                }
            }
        }
    }
    for (auto& [name, info] : classes_) {
        if (info.classdefFile >= 0) {
            for (auto const& definition : parsed_[info.classdefFile].facts.functions) {
                if (definition.isMethod) {
                    auto& slot = info.methods[definition.name];
                    // The classdef's own definition or signature says whether it is static.
                    if (slot.first < 0 || slot.first == 0) {
                        slot = {info.classdefFile, definition.isStatic};
                    }
                    if (definition.isStatic) {
                        slot.second = true;
                    }
                }
            }
        }
        for (auto const& [method, where] : info.methods) {
            if (!where.second) {
                auto const simple = name.substr(name.rfind(u'.') == std::u16string::npos ? 0 : name.rfind(u'.') + 1);
                if (method != simple) {
                    methodFallback_.try_emplace(method, where.first, method);
                }
            }
        }
    }

    // Duplicate definitions on the path: the first folder wins.
    std::unordered_map<std::u16string, int> firstOnPath;
    for (int f : pathFolders_) {
        for (int sub : folders[f].subfolders) {
            if (folders[sub].kind == FolderKind::Class) {
                auto const it = classes_.find(folders[sub].qualified);
                if (it != classes_.end() && it->second.constructorFile >= 0) {
                    pathFunctions_.try_emplace(folders[sub].qualified, it->second.constructorFile);
                }
            }
        }
        for (int file : folders[f].codeFiles) {
            pathFunctions_.try_emplace(u16(walk_.files[file].path.stem()), file);
        }
        for (int file : folders[f].codeFiles) {
            auto const stem = u16(walk_.files[file].path.stem());
            auto const [it, fresh] = firstOnPath.emplace(stem, file);
            if (!fresh) {
                result_.diagnostics.push_back({walk_.files[file].path, 0, 0,
                                               "function " + u8(stem) + " is also defined by " +
                                                   walk_.files[it->second].rel +
                                                   ", which comes first on the path; calls resolve there"});
            }
        }
    }

    // Products: their folders' functions by file name, except a product that holds the scanned folder (its
    // code is the scan's own).
    finder_ = dependency::toolbox::ToolboxFinder::getInstance();
    auto const& products = finder_->getProducts();
    for (std::size_t p = 0; p < products.size(); ++p) {
        auto const& verDir = products[p]->getVerDir();
        if (verDir.empty()) {
            continue;
        }
        fs::path const folder = fs::absolute(fs::path(verDir)).lexically_normal();
        if (folder == root_ || contains(folder, root_)) {
            continue;
        }
        indexProductFolder(productFunctions_, p, folder);
    }
}

Target Scan::fromFile(int file, std::u16string const& name, std::u16string const& entry) {
    (void)name;
    Target target;
    target.kind = Target::Tree;
    target.file = file;
    target.entry = entry;
    return target;
}

Target Scan::builtinOrNone(std::u16string const& name) const {
    Target target;
    if (builtins_->contains(name)) {
        target.kind = Target::Builtin;
    }
    return target;
}

// The entry of a class's constructor or of a package function.
std::u16string qualifiedEntry(std::u16string const& qualified) {
    auto const dot = qualified.rfind(u'.');
    if (dot == std::u16string::npos) {
        return qualified;
    }
    return qualified.substr(0, dot) + u"/" + qualified.substr(dot + 1);
}

Target Scan::resolvePlain(int file, std::u16string const& name, bool useImports) {
    auto const& walked = walk_.files[file];
    auto const& folder = walk_.folders[walked.folder];
    auto const& facts = parsed_[file].facts;
    // Functions of the file itself (main, local, nested).
    for (auto const& definition : facts.functions) {
        if (!definition.isMethod && definition.name == name) {
            return fromFile(file, name, name);
        }
    }
    // private/ beside the file; a file inside private/ sees its siblings.
    if (folder.privateFolder >= 0) {
        auto const& priv = folderFunctions_[folder.privateFolder];
        if (auto it = priv.find(name); it != priv.end()) {
            return fromFile(it->second, name, name);
        }
    }
    if (folder.kind == FolderKind::Private) {
        auto const& own = folderFunctions_[walked.folder];
        if (auto it = own.find(name); it != own.end()) {
            return fromFile(it->second, name, name);
        }
    }
    // The class's own methods.
    std::u16string className;
    if (facts.isClass) {
        className = folder.kind == FolderKind::Package ? folder.qualified + u"." + facts.className : facts.className;
    } else if (folder.kind == FolderKind::Class) {
        className = folder.qualified;
    }
    if (!className.empty()) {
        auto const it = classes_.find(className);
        if (it != classes_.end()) {
            if (auto m = it->second.methods.find(name); m != it->second.methods.end()) {
                auto const owner = parsed_[m->second.first].owner;
                return fromFile(m->second.first, name, m->second.second ? owner + u"." + name : name);
            }
        }
        if (folder.kind == FolderKind::Class) {
            auto const& own = folderFunctions_[walked.folder];
            if (auto f = own.find(name); f != own.end()) {
                return fromFile(f->second, name, name);
            }
        }
    }
    // The file's folder, unless it is a package's (package functions call each other by qualified name).
    if (folder.kind == FolderKind::Ordinary || folder.kind == FolderKind::Other) {
        auto const& own = folderFunctions_[walked.folder];
        if (auto f = own.find(name); f != own.end()) {
            return fromFile(f->second, name, name);
        }
    }
    // The path, in order: a class folder before a function file of the same name.
    if (auto it = pathFunctions_.find(name); it != pathFunctions_.end()) {
        return fromFile(it->second, name, name);
    }
    // Imports.
    static std::vector<std::u16string> const noImports;
    for (auto const& import : useImports ? facts.imports : noImports) {
        if (import.ends_with(u".*")) {
            auto const target = resolveDotted(file, import.substr(0, import.size() - 1) + name, false);
            if (target.kind == Target::Tree || target.kind == Target::Product) {
                return target;
            }
        } else if (import.ends_with(u"." + name)) {
            auto const target = resolveDotted(file, import, false);
            if (target.kind == Target::Tree || target.kind == Target::Product) {
                return target;
            }
        }
    }
    // Products' folders.
    if (auto it = productFunctions_.byName.find(name); it != productFunctions_.byName.end()) {
        Target target;
        target.kind = Target::Product;
        target.product = it->second.first;
        target.productFile = it->second.second;
        target.entry = name;
        return target;
    }
    auto target = builtinOrNone(name);
    if (target.kind == Target::Builtin) {
        return target;
    }
    // A method of a class in the tree, called in function form with an object argument.
    if (auto it = methodFallback_.find(name); it != methodFallback_.end()) {
        return fromFile(it->second.first, name, it->second.second);
    }
    return target;
}

Target Scan::resolveDotted(int file, std::u16string const& name, bool useImports) {
    // Longest prefix first: pkg.sub.f, then pkg.Cls.m as a static method, down to the first name alone.
    std::vector<std::size_t> dots;
    for (std::size_t i = 0; i < name.size(); ++i) {
        if (name[i] == u'.') {
            dots.push_back(i);
        }
    }
    for (std::size_t k = dots.size() + 1; k >= 2; --k) {
        auto const prefix = k == dots.size() + 1 ? name : name.substr(0, dots[k - 1]);
        auto const lastDot = prefix.rfind(u'.');
        auto const owner = prefix.substr(0, lastDot);
        auto const last = prefix.substr(lastDot + 1);
        // A package function or class.
        if (auto it = packageFolders_.find(owner); it != packageFolders_.end()) {
            for (int folder : it->second) {
                auto const cls = classes_.find(prefix);
                if (cls != classes_.end() && cls->second.constructorFile >= 0) {
                    return fromFile(cls->second.constructorFile, prefix, qualifiedEntry(prefix));
                }
                auto const& functions = folderFunctions_[folder];
                if (auto f = functions.find(last); f != functions.end()) {
                    return fromFile(f->second, prefix, qualifiedEntry(prefix));
                }
            }
        }
        // A static method of a class.
        if (auto cls = classes_.find(owner); cls != classes_.end()) {
            if (auto m = cls->second.methods.find(last); m != cls->second.methods.end()) {
                auto const ownerName = parsed_[m->second.first].owner;
                auto const simple = ownerName.empty() ? owner.substr(owner.rfind(u'.') + 1) : ownerName;
                auto const packagePart = owner.rfind(u'.') == std::u16string::npos
                                             ? std::u16string()
                                             : owner.substr(0, owner.rfind(u'.')) + u"/";
                return fromFile(m->second.first, prefix, m->second.second ? packagePart + simple + u"." + last : last);
            }
        }
        if (auto it = productFunctions_.byName.find(prefix); it != productFunctions_.byName.end()) {
            Target target;
            target.kind = Target::Product;
            target.product = it->second.first;
            target.productFile = it->second.second;
            target.entry = qualifiedEntry(prefix);
            return target;
        }
        if (builtins_->contains(prefix)) {
            return builtinOrNone(prefix);
        }
    }
    // Through imports: Cls.m with `import pkg.*` or `import pkg.Cls`.
    auto const first = name.substr(0, dots.empty() ? name.size() : dots.front());
    static std::vector<std::u16string> const noImports;
    for (auto const& import : useImports ? parsed_[file].facts.imports : noImports) {
        std::u16string qualified;
        if (import.ends_with(u".*")) {
            qualified = import.substr(0, import.size() - 1) + name;
        } else if (import.ends_with(u"." + first)) {
            qualified = import.substr(0, import.size() - first.size()) + name;
        } else {
            continue;
        }
        if (qualified != name) {
            auto const target = resolveDotted(file, qualified, false);
            if (target.kind != Target::None) {
                return target;
            }
        }
    }
    // The first name alone: a function whose result is indexed (cfg.x), or a variable the code cannot show.
    Target target = resolvePlain(file, std::u16string(first), useImports);
    if (target.kind == Target::None &&
        (packageFolders_.contains(first) || productFunctions_.packages.contains(first))) {
        target.entry = name;  // a package that lacks the function: report the whole name
    }
    return target;
}

Target Scan::resolve(int file, NameUse const& use) {
    if (use.name.find(u'.') == std::u16string::npos) {
        return resolvePlain(file, use.name);
    }
    return resolveDotted(file, use.name);
}

void Scan::buildGraph() {
    graph::GraphBuilder builder;
    auto addNode = [&](graph::NodeData data) -> std::size_t {
        // File names may hold any character: a file called "a.qx>f" must not take a function node's ID. Edges
        // go by index, so a later node that meets a taken ID gets a suffix.
        while (builder.indexOf(data.id)) {
            data.id += u"#";
        }
        builder.addNode(std::move(data));
        return builder.nodeCount() - 1;
    };
    auto const& files = walk_.files;

    // Projects, with their cycles and references.
    std::vector<std::optional<std::string>> cycles;
    try {
        cycles = circularReferences(projects_);
    } catch (std::exception const& error) {
        result_.diagnostics.push_back({root_, 0, 0, std::string("project references not followed: ") + error.what()});
        cycles.assign(projects_.size(), std::nullopt);
    }
    std::vector<std::size_t> projectNode;
    std::map<std::string, std::size_t> projectByName;
    std::map<fs::path, std::size_t> projectByFile;
    for (std::size_t p = 0; p < projects_.size(); ++p) {
        graph::NodeData data;
        data.id = u"project:" + relOf(projectFiles_[p]);
        data.name = u16(projects_[p].name);
        data.type = graph::Type::PROJECT();
        data.path = u16(files[projectFiles_[p]].path);
        if (p < cycles.size() && cycles[p]) {
            data.properties[u"circularReferences"] = u16(*cycles[p]);
        }
        projectNode.push_back(addNode(std::move(data)));
        projectByName.try_emplace(projects_[p].name, projectNode.back());
        projectByFile.emplace(projects_[p].file.lexically_normal(), projectNode.back());
    }
    std::vector<std::pair<std::size_t, std::size_t>> projectEdges;
    std::map<std::string, std::size_t> missingProjects;
    for (std::size_t p = 0; p < projects_.size(); ++p) {
        for (auto const& reference : projects_[p].references) {
            std::optional<std::size_t> target;
            if (!reference.file.empty()) {
                if (auto it = projectByFile.find(reference.file.lexically_normal()); it != projectByFile.end()) {
                    target = it->second;
                }
            } else if (auto it = projectByName.find(reference.project); it != projectByName.end()) {
                target = it->second;
            }
            if (!target) {
                auto const key = reference.file.empty() ? reference.project : relativeText(reference.file, root_);
                auto it = missingProjects.find(key);
                if (it == missingProjects.end()) {
                    graph::NodeData data;
                    data.id = u"project:?" + u16(key);
                    data.name = u16(reference.file.empty() ? key : reference.file.stem().string());
                    data.type = graph::Type::PROJECT();
                    data.resolved = false;
                    data.properties[u"referencedAt"] = u16(jsonArray(std::vector<std::string>{
                        relativeText(projects_[p].file, root_) + ":" + place(reference.line, reference.column)}));
                    it = missingProjects.emplace(key, addNode(std::move(data))).first;
                }
                target = it->second;
            }
            projectEdges.emplace_back(projectNode[p], *target);
        }
    }

    // File nodes: every code file, with its syntax error.
    std::vector<std::optional<std::size_t>> fileNode(files.size());
    std::unordered_map<std::u16string, std::size_t> nodeById;
    for (std::size_t f = 0; f < files.size(); ++f) {
        if (!files[f].code) {
            continue;
        }
        graph::NodeData data;
        data.id = relOf(static_cast<int>(f));
        data.type = graph::Type::FILE();
        data.isFile = true;
        data.location = {u16(files[f].path)};
        data.pathIsFirstLocation = true;
        auto const& p = parsed_[f];
        if (p.syntaxError) {
            data.properties[u"syntaxError"] = u"true";
            data.properties[u"syntaxErrorMessage"] = u16(p.message);
            data.properties[u"syntaxErrorAt"] = u16(place(p.line, p.column));
        } else if (!p.readable) {
            data.properties[u"readError"] = u16(p.message);
        }
        auto const id = data.id;
        fileNode[f] = addNode(std::move(data));
        nodeById.emplace(id, *fileNode[f]);
    }

    // Derived rules: every existing output with its source.
    struct DerivedPair {
        fs::path output, source;
        std::string rule;
    };
    std::vector<DerivedPair> derivedPairs;
    auto expandRule = [&](DerivedRule const& rule, fs::path const& base, std::string const& where) {
        auto const star = rule.output.find('*');
        if (star != rule.output.rfind('*') || rule.source.find('*') != rule.source.rfind('*')) {
            result_.diagnostics.push_back(
                {where, rule.line, rule.column, "derived-file rule with more than one '*' on a side: ignored"});
            return;
        }
        std::string const text = rule.output + " = " + rule.source;
        if (star == std::string::npos) {
            if (fs::exists(base / rule.output)) {
                derivedPairs.push_back(
                    {(base / rule.output).lexically_normal(), (base / rule.source).lexically_normal(), text});
            }
            return;
        }
        auto const slash = rule.output.rfind('/', star);
        std::string const folderPart = slash == std::string::npos ? "" : rule.output.substr(0, slash);
        std::string const prefix = rule.output.substr(slash == std::string::npos ? 0 : slash + 1,
                                                      star - (slash == std::string::npos ? 0 : slash + 1));
        std::string const suffix = rule.output.substr(star + 1);
        if (suffix.find('/') != std::string::npos) {
            result_.diagnostics.push_back(
                {where, rule.line, rule.column, "derived-file rule: the '*' must be in the file name: ignored"});
            return;
        }
        std::vector<std::string> names;
        std::error_code error;
        for (fs::directory_iterator it(base / folderPart, error), end; !error && it != end; it.increment(error)) {
            names.push_back(it->path().filename().string());
        }
        std::sort(names.begin(), names.end());
        for (auto const& fileName : names) {
            if (fileName.size() < prefix.size() + suffix.size() || !fileName.starts_with(prefix) ||
                !fileName.ends_with(suffix)) {
                continue;
            }
            auto const stem = fileName.substr(prefix.size(), fileName.size() - prefix.size() - suffix.size());
            auto source = rule.source;
            if (auto const s = source.find('*'); s != std::string::npos) {
                source.replace(s, 1, stem);
            }
            derivedPairs.push_back(
                {(base / folderPart / fileName).lexically_normal(), (base / source).lexically_normal(), text});
        }
    };
    for (auto const& rule : settings_.derived) {
        expandRule(rule, root_, root_.string());
    }
    for (auto const& project : projects_) {
        for (auto const& rule : project.derived) {
            expandRule(rule, project.file.parent_path(), project.file.string());
        }
    }

    // Other files: referenced by code (beside the caller, else from the scanned folder) or named by derived rules.
    auto fileNodeFor = [&](fs::path const& path, bool resolved, graph::Type type) -> std::size_t {
        auto const id = u16(relativeText(path, root_));
        if (auto it = nodeById.find(id); it != nodeById.end()) {
            return it->second;
        }
        graph::NodeData data;
        data.id = id;
        data.type = type;
        data.isFile = true;
        data.resolved = resolved;
        data.location = {u16(path)};
        data.pathIsFirstLocation = true;
        auto const index = addNode(std::move(data));
        nodeById.emplace(id, index);
        return index;
    };
    std::vector<std::pair<std::size_t, std::size_t>> derivedEdges;
    for (auto const& pair : derivedPairs) {
        auto const output = fileNodeFor(pair.output, true, graph::Type::DERIVED());
        derivedEdges.emplace_back(output, 0);
    }
    for (std::size_t i = 0; i < derivedPairs.size(); ++i) {
        derivedEdges[i].second = fileNodeFor(derivedPairs[i].source, true, graph::Type::FILE());
    }

    // Resolve every use, file by file in walk order. A call site stays a position until its node's property is
    // written.
    struct Site {
        std::uint32_t file;
        detail::Position at;
    };
    struct PendingFunction {
        graph::NodeData data;
        std::vector<Site> sites;
    };
    std::deque<PendingFunction> functions;  // node data is large: a deque never moves it
    std::vector<std::size_t> functionFile;  // per function: the last file whose sites it took
    std::unordered_map<std::u16string, std::size_t> functionIndex;
    std::vector<std::tuple<std::size_t, std::size_t, graph::Type>> fileEdges;  // (file node, function #, type)
    std::vector<std::pair<std::size_t, std::size_t>> referenceEdges;           // (file node, referenced #)
    std::vector<std::pair<std::size_t, std::size_t>> requirementEdges;         // (file node, product #)
    struct ReferencedFile {
        bool found = false;
        std::vector<std::string> sites;
        std::size_t order = 0;
    };
    std::map<fs::path, ReferencedFile> referenced;
    std::vector<fs::path> referencedOrder;  // in the order first met
    std::vector<std::size_t> usedProducts;
    auto& counts = result_.counts;

    auto definitionPlace = [&](int file, std::u16string const& entry) -> std::string {
        auto const& facts = parsed_[file].facts;
        auto const slash = entry.find(u'/');
        auto const sought =
            slash == std::u16string::npos ? std::u16string_view(entry) : std::u16string_view(entry).substr(slash + 1);
        if (facts.isClass && (sought == facts.className)) {
            return place(facts.classAt.line, facts.classAt.column);
        }
        auto const& owner = parsed_[file].owner;
        for (auto const& definition : facts.functions) {
            // A static method is sought as Owner.name.
            bool const asStatic = definition.isStatic && sought.size() == owner.size() + 1 + definition.name.size() &&
                                  sought.starts_with(owner) && sought[owner.size()] == u'.' &&
                                  sought.ends_with(definition.name);
            if (asStatic || definition.name == sought) {
                return place(definition.at.line, definition.at.column);
            }
        }
        return {};
    };

    // Each distinct name of a file is resolved once, in the parallel step, with the ID of the node it reaches.
    constexpr std::size_t noFunction = static_cast<std::size_t>(-1);
    struct Distinct {
        Target target;
        std::u16string id;          // the function node's ID (none for a built-in)
        std::u16string unresolved;  // the name an unresolved node carries
        std::size_t function = noFunction;
        // The uses that count (all but built-in ones and unreported unresolved ones), in use order: the use's
        // ordinal in the file and its place.
        std::vector<std::pair<std::uint32_t, detail::Position>> sites;
    };
    struct FileUses {
        std::vector<Distinct> distinct;
        // (distinct, edge type: call 1, inheritance 2) in the order each pair is first met.
        std::vector<std::pair<std::uint32_t, unsigned char>> order;
        std::size_t calls = 0, builtinCalls = 0, resolvedCalls = 0, unresolvedCalls = 0;
    };

    auto functionFor = [&](Distinct const& d, int callerFile) {
        if (auto it = functionIndex.find(d.id); it != functionIndex.end()) {
            return it->second;
        }
        auto const& target = d.target;
        graph::NodeData data;
        data.type = graph::Type::FUNCTION();
        if (target.kind == Target::Tree) {
            data.location = {u16(files[target.file].path), target.entry};
        } else if (target.kind == Target::Product) {
            data.location = {target.productFile.u16string(), target.entry};
        } else {
            data.location = {u16(files[callerFile].path), d.unresolved};
            data.resolved = false;
        }
        data.id = d.id;
        auto const slash = data.location[1].find(u'/');
        data.name = slash == std::u16string::npos ? data.location[1] : data.location[1].substr(slash + 1);
        data.pathIsFirstLocation = true;
        if (target.kind == Target::Tree) {
            auto const where = definitionPlace(target.file, target.entry);
            if (!where.empty()) {
                data.properties[u"definedAt"] = u16(where);
            }
        }
        functions.push_back({std::move(data), {}});
        functionFile.push_back(noFunction);
        functionIndex.emplace(d.id, functions.size() - 1);
        return functions.size() - 1;
    };

    // Names resolve in parallel (the index is only read); the graph is then built in the walk's order.
    std::vector<FileUses> uses(files.size());
    {
        std::atomic<std::size_t> next{0};
        auto work = [&] {
            detail::NameTable seen;
            std::vector<NameUse const*> firstUses;
            std::vector<std::uint32_t> ofUse;
            std::vector<unsigned char> edgeSeen;
            for (std::size_t f = next++; f < files.size(); f = next++) {
                if (!files[f].code || !parsed_[f].readable || parsed_[f].syntaxError) {
                    continue;
                }
                auto const& facts = parsed_[f].facts;
                auto& out = uses[f];
                seen.clear();
                firstUses.clear();
                ofUse.clear();
                auto add = [&](NameUse const& use) {
                    auto const [k, fresh] = seen.emplace(use.name, static_cast<std::uint32_t>(firstUses.size()));
                    if (fresh) {
                        firstUses.push_back(&use);
                    }
                    ofUse.push_back(k);
                };
                for (auto const& super : facts.superclasses) {
                    add(super);
                }
                for (auto const& use : facts.uses) {
                    add(use);
                }
                out.distinct.resize(firstUses.size());
                for (std::size_t k = 0; k < firstUses.size(); ++k) {
                    auto const& use = *firstUses[k];
                    auto& d = out.distinct[k];
                    d.target = resolve(static_cast<int>(f), use);
                    auto const& target = d.target;
                    if (target.kind == Target::Tree) {
                        d.id = relOf(target.file) + u">" + target.entry;
                    } else if (target.kind == Target::Product) {
                        auto const& product = finder_->getProducts()[target.product];
                        auto const folder = fs::absolute(fs::path(product->getVerDir())).lexically_normal();
                        d.id = product->getBaseCode() + u":" + u16(relativeText(target.productFile, folder)) + u">" +
                               target.entry;
                    } else if (target.kind == Target::None) {
                        d.unresolved = target.entry.empty() ? use.name.substr(0, use.name.find(u'.')) : target.entry;
                        d.id = u"unresolved:" + d.unresolved;
                    }
                }
                // Which uses count, and the edges they make, in use order.
                std::uint32_t ordinal = 0;
                edgeSeen.assign(out.distinct.size(), 0);
                auto count = [&](NameUse const& use, unsigned char typeBit) {
                    std::uint32_t const k = ofUse[ordinal];
                    auto& d = out.distinct[k];
                    ++out.calls;
                    if (d.target.kind == Target::Builtin) {
                        ++out.builtinCalls;
                    } else if (d.target.kind == Target::None && (!use.reportable || use.kind == UseKind::Metaclass)) {
                        // resolves nowhere and is not reported
                    } else {
                        ++(d.target.kind == Target::None ? out.unresolvedCalls : out.resolvedCalls);
                        d.sites.emplace_back(ordinal, use.at);
                        if ((edgeSeen[k] & typeBit) == 0) {
                            edgeSeen[k] |= typeBit;
                            out.order.emplace_back(k, typeBit);
                        }
                    }
                    ++ordinal;
                };
                for (auto const& super : facts.superclasses) {
                    count(super, 2);
                }
                for (auto const& use : facts.uses) {
                    count(use, 1);
                }
            }
        };
        std::vector<std::jthread> pool;
        for (unsigned t = 1; t < threadCount(); ++t) {
            pool.emplace_back(work);
        }
        work();
    }

    for (std::size_t f = 0; f < files.size(); ++f) {
        if (!files[f].code || !parsed_[f].readable || parsed_[f].syntaxError) {
            continue;
        }
        int const file = static_cast<int>(f);
        auto const caller = *fileNode[f];
        auto const& facts = parsed_[f].facts;
        auto& fileUses = uses[f];
        counts.calls += fileUses.calls;
        counts.builtinCalls += fileUses.builtinCalls;
        counts.resolvedCalls += fileUses.resolvedCalls;
        counts.unresolvedCalls += fileUses.unresolvedCalls;
        auto site = [&](detail::Position const& at) { return files[f].rel + ":" + place(at.line, at.column); };
        // Function nodes in the order they are first reached, one edge per function and type, one requirement
        // per product.
        std::vector<std::pair<std::size_t, graph::Type>> seenEdges;
        std::vector<std::size_t> products;
        bool shared = false;  // two names of this file reach one function (f and pkg.f through an import)
        for (auto const& [k, typeBit] : fileUses.order) {
            auto& d = fileUses.distinct[k];
            if (d.function == noFunction) {
                d.function = functionFor(d, file);
                shared = shared || functionFile[d.function] == f;
                functionFile[d.function] = f;
            }
            auto const type = typeBit == 2 ? graph::Type::INHERITANCE() : graph::Type::CALL();
            if (std::find(seenEdges.begin(), seenEdges.end(), std::pair{d.function, type}) == seenEdges.end()) {
                seenEdges.emplace_back(d.function, type);
                fileEdges.emplace_back(caller, d.function, type);
            }
            if (d.target.kind == Target::Product &&
                std::find(products.begin(), products.end(), d.target.product) == products.end()) {
                products.push_back(d.target.product);
                requirementEdges.emplace_back(caller, d.target.product);
                if (std::find(usedProducts.begin(), usedProducts.end(), d.target.product) == usedProducts.end()) {
                    usedProducts.push_back(d.target.product);
                }
            }
        }
        // Call sites in use order.
        if (!shared) {
            for (auto const& d : fileUses.distinct) {
                for (auto const& [ordinal, at] : d.sites) {
                    functions[d.function].sites.push_back({static_cast<std::uint32_t>(f), at});
                }
            }
        } else {
            std::vector<std::tuple<std::uint32_t, std::size_t, detail::Position>> all;
            for (auto const& d : fileUses.distinct) {
                for (auto const& [ordinal, at] : d.sites) {
                    all.emplace_back(ordinal, d.function, at);
                }
            }
            std::sort(all.begin(), all.end(),
                      [](auto const& a, auto const& b) { return std::get<0>(a) < std::get<0>(b); });
            for (auto const& [ordinal, function, at] : all) {
                functions[function].sites.push_back({static_cast<std::uint32_t>(f), at});
            }
        }
        for (auto const& reference : facts.references) {
            fs::path const literal = fs::path(reference.text);
            fs::path chosen;
            bool found = false;
            if (literal.is_absolute()) {
                chosen = literal.lexically_normal();
                found = fs::exists(chosen);
            } else {
                auto const beside = (files[f].path.parent_path() / literal).lexically_normal();
                auto const fromRoot = (root_ / literal).lexically_normal();
                std::error_code error;
                if (fs::exists(beside, error)) {
                    chosen = beside;
                    found = true;
                } else if (fs::exists(fromRoot, error)) {
                    chosen = fromRoot;
                    found = true;
                } else {
                    chosen = beside;
                }
            }
            auto [it, fresh] = referenced.try_emplace(chosen, ReferencedFile{found, {}, referencedOrder.size()});
            if (fresh) {
                referencedOrder.push_back(chosen);
            }
            it->second.sites.push_back(site(reference.at));
            if (std::find(referenceEdges.begin(), referenceEdges.end(), std::pair{caller, it->second.order}) ==
                referenceEdges.end()) {
                referenceEdges.emplace_back(caller, it->second.order);
            }
        }
    }

    // What the files' uses held is freed beside the rest of the work.
    std::jthread const release([held = std::move(uses)]() mutable { held = {}; });

    // Referenced files, then function nodes, then products and packages.
    std::vector<std::size_t> referencedNode;
    for (auto const& path : referencedOrder) {
        auto const& info = referenced[path];
        auto const id = u16(relativeText(path, root_));
        if (auto it = nodeById.find(id); it != nodeById.end()) {
            referencedNode.push_back(it->second);
            continue;
        }
        graph::NodeData data;
        data.id = id;
        data.type = graph::Type::FILE();
        data.isFile = true;
        data.resolved = info.found;
        data.location = {u16(path)};
        data.pathIsFirstLocation = true;
        data.properties[u"referencedAt"] = u16(jsonArray(info.sites));
        referencedNode.push_back(addNode(std::move(data)));
        nodeById.emplace(id, referencedNode.back());
    }
    // "file:line:column" texts as a JSON array, escaped as jsonArray escapes them. Each file's name is escaped
    // once, however many sites it holds.
    std::vector<std::u16string> escapedRel(files.size());
    for (std::size_t f = 0; f < files.size(); ++f) {
        if (!files[f].code) {
            continue;
        }
        std::string quoted;
        graph::appendJsonString(quoted, files[f].rel);
        escapedRel[f] = u16(quoted.substr(1, quoted.size() - 2));
    }
    auto sitesJson = [&](std::vector<Site> const& sites) {
        std::size_t size = 2;
        for (auto const& site : sites) {
            size += escapedRel[site.file].size() + 25;
        }
        std::u16string out;
        out.reserve(size);
        out += u'[';
        for (std::size_t i = 0; i < sites.size(); ++i) {
            out += i == 0 ? u"\"" : u",\"";
            out += escapedRel[sites[i].file];
            out += u':';
            appendNumber(out, sites[i].at.line);
            out += u':';
            appendNumber(out, sites[i].at.column);
            out += u'"';
        }
        out += u']';
        return out;
    };
    // The call-site texts are written on all threads; the nodes are then added in order.
    {
        std::atomic<std::size_t> next{0};
        auto work = [&] {
            for (std::size_t i = next++; i < functions.size(); i = next++) {
                if (!functions[i].sites.empty()) {
                    functions[i].data.properties[u"callSites"] = sitesJson(functions[i].sites);
                    functions[i].sites = {};
                }
            }
        };
        std::vector<std::jthread> pool;
        for (unsigned t = 1; t < threadCount(); ++t) {
            pool.emplace_back(work);
        }
        work();
    }
    std::vector<std::size_t> functionNode;
    std::size_t unresolvedNames = 0;
    for (auto& pending : functions) {
        unresolvedNames += pending.data.resolved ? 0 : 1;
        functionNode.push_back(addNode(std::move(pending.data)));
    }
    counts.unresolvedNames = unresolvedNames;

    std::map<std::size_t, std::size_t> productNode, packageNode;
    std::sort(usedProducts.begin(), usedProducts.end());
    for (auto const p : usedProducts) {
        auto const& product = finder_->getProducts()[p];
        graph::NodeData data;
        auto const& locators = product->getLocators();
        data.id = u"product:" + (locators.empty() ? product->getBaseCode() : locators.front());
        data.name = product->getName();
        data.type = graph::Type::PRODUCT();
        // One locator per product it denotes: the missing-product analyzer
        // reports each product a locator finds, so a second locator of the
        // same product would report it twice.
        std::set<dependency::toolbox::ProductInfo const*> denoted;
        for (auto const& locator : locators) {
            bool adds = false;
            for (auto const& found : finder_->findProductsByLocator(locator)) {
                adds = denoted.insert(found.get()).second || adds;
            }
            if (adds || data.location.empty()) {
                data.location.push_back(locator);
            }
        }
        if (builder.indexOf(data.id)) {
            data.id += u"#" + product->getBaseCode();
        }
        productNode[p] = addNode(std::move(data));
        if (product->getKind() != 3 || !product->isInstalled()) {
            continue;
        }
        fs::path const folder = fs::absolute(fs::path(product->getVerDir())).lexically_normal();
        fs::path const definition = folder / fs::path(foundation::packages::PackageDefRelativeToRoot);
        try {
            std::ifstream in(definition, std::ios::binary);
            if (!in) {
                throw std::runtime_error(definition.string() + ": cannot read the package definition");
            }
            std::stringstream text;
            text << in.rdbuf();
            auto const descriptor = foundation::packages::parsePackageDefinition(text.str(), definition.string());
            graph::NodeData package;
            package.id = u"package:" + descriptor->GetName();
            package.name = descriptor->GetName();
            package.type = graph::Type::PACKAGE();
            package.path = folder.u16string();
            package.location = {folder.u16string(), descriptor->GetName(), descriptor->GetVersion(),
                                u16(boost::uuids::to_string(descriptor->GetUniqueId()))};
            if (builder.indexOf(package.id)) {
                package.id += u"#" + product->getBaseCode();
            }
            packageNode[p] = addNode(std::move(package));
        } catch (std::exception const& error) {
            result_.diagnostics.push_back({definition, 0, 0, std::string("package not linked: ") + error.what()});
        }
    }

    // Edges, in a fixed order: projects, derived files, then each file's calls, references and requirements.
    for (auto const& [from, to] : projectEdges) {
        builder.addDependency(from, to, graph::Type::REFERENCE());
    }
    for (auto const& [from, to] : derivedEdges) {
        builder.addDependency(from, to, graph::Type::DERIVED());
    }
    // Group by caller in node order.
    std::map<std::size_t, std::vector<std::pair<std::size_t, graph::Type>>> byCaller;
    for (auto const& [caller, function, type] : fileEdges) {
        byCaller[caller].emplace_back(functionNode[function], type);
    }
    for (auto const& [caller, order] : referenceEdges) {
        byCaller[caller].emplace_back(referencedNode[order], graph::Type::REFERENCE());
    }
    for (auto const& [caller, product] : requirementEdges) {
        byCaller[caller].emplace_back(productNode[product], graph::Type::REQUIREMENT());
        if (auto it = packageNode.find(product); it != packageNode.end()) {
            byCaller[caller].emplace_back(it->second, graph::Type::REQUIREMENT());
        }
    }
    for (auto const& [caller, edges] : byCaller) {
        for (auto const& [to, type] : edges) {
            builder.addDependency(caller, to, type);
        }
    }
    result_.graph = builder.build();
}

ScanResult Scan::run() {
    std::error_code error;
    root_ = fs::absolute(settings_.folder, error).lexically_normal();
    if (root_.has_filename() == false && root_ != root_.root_path()) {
        root_ = root_.parent_path();
    }
    if (!fs::is_directory(root_, error)) {
        throw ScanError(settings_.folder.string() + ": not a folder that can be scanned" +
                        (error ? ": " + error.message() : std::string()));
    }
    builtins_ = BuiltinNames::shipped().withExtra(settings_.knownFunctions);

    // Product folders below the scanned folder belong to their products, not to the scanned code.
    std::vector<fs::path> skip;
    finder_ = dependency::toolbox::ToolboxFinder::getInstance();
    for (auto const& product : finder_->getProducts()) {
        if (!product->getVerDir().empty()) {
            auto const folder = fs::absolute(fs::path(product->getVerDir())).lexically_normal();
            if (contains(root_, folder) && folder != root_) {
                skip.push_back(folder);
            }
        }
    }
    walk_ = detail::walkFolder(root_, settings_.exclude, skip, result_.diagnostics);
    result_.counts.files = walk_.files.size();
    relIds_.reserve(walk_.files.size());
    for (auto const& file : walk_.files) {
        relIds_.push_back(u16(file.rel));
    }
    parseAll();
    readProjects();
    buildIndex();
    buildGraph();
    return std::move(result_);
}

}  // namespace

ScanResult scanProject(ScanSettings const& settings) {
    return Scan(settings).run();
}

}  // namespace depattr::scan
