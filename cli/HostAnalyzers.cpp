#include "cli/HostAnalyzers.hpp"

#include "cli/Report.hpp"

#include "platform/host/HostClasses.hpp"
#include "platform/host/HostFunctions.hpp"
#include "platform/host/Qcos.hpp"
#include "platform/host/Vm.hpp"
#include "platform/host/lang/Language.hpp"
#include "platform/services/ImmutableGraph.hpp"
#include "services/AnalyzerRegistry.hpp"
#include "services/HostExecution.hpp"

#include <fmt/format.h>

#include <cctype>
#include <csignal>

namespace depattr::cli {

namespace {

using dependency::attribute::AttributeAnalyzer;
using dependency::attribute::GraphAttributes;

constexpr char const* AnalyzerClass = "dependencies.internal.attribute.AttributeAnalyzer";

// Paths in messages are relative to the working folder when they lie under it.
std::string shown(std::string const& file) {
    std::error_code error;
    auto const relative = std::filesystem::relative(file, std::filesystem::current_path(), error);
    if (error || relative.empty() || relative.native().starts_with("..")) {
        return file;
    }
    return relative.string();
}

std::string locationOf(qcos::HostErrorFrame const& frame) {
    return fmt::format("{}:{}:{}", shown(frame.file), frame.line, frame.column);
}

// The gateway that makes a built-in analyzer: "missing-file" is made by createMissingFileAnalyzer.
std::string gatewayOf(std::string_view name) {
    std::string gateway = "create";
    bool upper = true;
    for (char const c : name) {
        if (c == '-') {
            upper = true;
            continue;
        }
        gateway.push_back(upper ? static_cast<char>(std::toupper(static_cast<unsigned char>(c))) : c);
        upper = false;
    }
    return gateway + "Analyzer";
}

// Finds nothing; stops the analysis at the next node once Ctrl-C was pressed,
// also while only built-in analyzers run.
class InterruptCheck final : public AttributeAnalyzer {
public:
    std::vector<std::shared_ptr<dependency::attribute::Attribute>> analyze(
        std::shared_ptr<dependency::graph::Node> const&,
        std::shared_ptr<dependency::graph::Graph const> const&) const override {
        if (qvm::isInterruptRequested()) {
            throw qcos::HostError("qlang:interrupted", "Interrupted (Ctrl-C): the host code was stopped.");
        }
        return {};
    }
};

extern "C" void onInterrupt(int) {
    qvm::requestInterrupt();
    // A second Ctrl-C ends the program at once.
    std::signal(SIGINT, SIG_DFL);
}

// Ctrl-C sets the host's interrupt flag while an analysis runs.
class InterruptHandler {
public:
    InterruptHandler() : previous_(std::signal(SIGINT, onInterrupt)) {}
    ~InterruptHandler() { std::signal(SIGINT, previous_); }
    InterruptHandler(InterruptHandler const&) = delete;
    InterruptHandler& operator=(InterruptHandler const&) = delete;

private:
    void (*previous_)(int);
};

template <class R>
R onCommandThread(std::function<R()> work) {
    return dependency::services::detail::runOnCommandThread<R>(qvm::Factory::getCurrentLocalQVM(), std::move(work),
                                                               "depattr");
}

}  // namespace

std::string describe(qcos::HostError const& error) {
    // The context says which host call failed, e.g. "AttributeAnalyzer.analyze".
    std::string text = error.context().empty() ? std::string() : escapeControls(error.context()) + ": ";
    if (!error.stack().empty()) {
        text += escapeControls(locationOf(error.stack().front())) + ": ";
    }
    text += escapeControls(error.what());
    if (!error.identifier().empty()) {
        text += " [" + escapeControls(error.identifier()) + "]";
    }
    auto const& stack = error.stack();
    auto const same = [](qcos::HostErrorFrame const& a, qcos::HostErrorFrame const& b) {
        return a.file == b.file && a.function == b.function && a.line == b.line && a.column == b.column;
    };
    for (std::size_t i = 1; i < stack.size();) {
        auto const& frame = stack[i];
        text += "\n    " + escapeControls(fmt::format("called from {} at {}", frame.function, locationOf(frame)));
        std::size_t repeats = 0;
        while (i + 1 + repeats < stack.size() && same(stack[i + 1 + repeats], frame)) {
            ++repeats;
        }
        if (repeats > 0) {
            text += "\n    " + escapeControls(fmt::format("... {} more call{} of {}", repeats, repeats == 1 ? "" : "s",
                                                          frame.function));
        }
        i += 1 + repeats;
    }
    return text;
}

bool isInterruption(qcos::HostError const& error) {
    return error.identifier() == "qlang:interrupted";
}

std::shared_ptr<HostAnalyzers> HostAnalyzers::load(std::vector<std::filesystem::path> const& folders) {
    auto loaded = std::shared_ptr<HostAnalyzers>(new HostAnalyzers);
    try {
        onCommandThread<int>([&] {
            // The library this program is linked with, loaded as the host loads it: its classes and gateways.
            qvm::loadLibrary("libdepattr.so");
            qlang::setSearchPath(folders);
            std::vector<qlang::CodeFile> analyzerFiles;
            for (auto const& folder : folders) {
                for (auto const& file : qlang::listCodeFiles(folder)) {
                    auto const summary = qlang::checkFile(file);
                    if (summary.isClass && !summary.isAbstract) {
                        analyzerFiles.push_back(file);
                    }
                }
            }
            auto const vm = qvm::Factory::getCurrentLocalQVM();
            for (auto const& file : analyzerFiles) {
                qlang::defineClass(file.qualifiedName);
                if (!qcos::omIsA(file.qualifiedName, AnalyzerClass)) {
                    continue;
                }
                auto object = std::move(qlang::callFunction(file.qualifiedName, {}, 1).at(0));
                auto const& name = loaded->names_.emplace_back(file.qualifiedName);
                loaded->analyzers_.push_back(
                    {name, dependency::attribute::fromAttributeAnalyzerScalarQxArray(*object, vm)});
            }
            return 0;
        });
    } catch (qcos::HostError const& error) {
        throw EscapedError(describe(error));
    }
    return loaded;
}

std::vector<std::string> HostAnalyzers::names() const {
    return {names_.begin(), names_.end()};
}

std::shared_ptr<GraphAttributes> HostAnalyzers::analyze(std::shared_ptr<dependency::graph::Graph const> const& graph,
                                                        std::vector<NamedAnalyzer> const& builtIns,
                                                        FindingSources& sources,
                                                        std::shared_ptr<AttributeAnalyzer> const& progress) const {
    InterruptHandler interrupts;
    try {
        return onCommandThread<std::shared_ptr<GraphAttributes>>([&] {
            auto const vm = qvm::Factory::getCurrentLocalQVM();
            std::vector<NamedAnalyzer> all;
            for (auto const& entry : builtIns) {
                auto const made = qvm::callHostFunction(gatewayOf(entry.name), {}, 1);
                all.push_back({entry.name, dependency::attribute::fromAttributeAnalyzerScalarQxArray(*made.at(0), vm)});
            }
            all.insert(all.end(), analyzers_.begin(), analyzers_.end());
            // Each analyzer is wrapped so that the report can name it; the registry
            // gives the wrappers back as themselves.
            std::vector<std::shared_ptr<AttributeAnalyzer>> registered{std::make_shared<InterruptCheck>()};
            auto const tracked = sources.track(all);
            registered.insert(registered.end(), tracked.begin(), tracked.end());
            if (progress) {
                registered.push_back(progress);
            }
            qcos::registry::clearAttributeAnalyzers();
            for (auto const& analyzer : registered) {
                auto const object = dependency::attribute::toAttributeAnalyzerQxArray(analyzer);
                qcos::registry::addAttributeAnalyzer(qcos::omGetArrayElement(*object, 0));
            }
            auto const graphObject = qcos::omCreateQCOSScalar(
                dependency::services::toGraphObject(std::make_shared<dependency::services::ImmutableGraph>(graph)));
            qxArray const* inputs[] = {graphObject.get()};
            auto const outputs = qvm::callHostFunction("analyzeInQorvex", inputs, 1);
            auto result = matrix::from_qorvex<GraphAttributes>(*outputs.at(0));
            qcos::registry::clearAttributeAnalyzers();
            return result;
        });
    } catch (qcos::HostError const& error) {
        qcos::registry::clearAttributeAnalyzers();
        if (isInterruption(error)) {
            qvm::clearInterrupt();
            throw Interrupted(error.what());
        }
        throw EscapedError(describe(error));
    }
}

}  // namespace depattr::cli
