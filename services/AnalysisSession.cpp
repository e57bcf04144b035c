#include "services/AnalysisSession.hpp"

#include "attribute/analyzers/Registry.hpp"
#include "platform/foundation/Printable.hpp"
#include "platform/host/HostClasses.hpp"
#include "platform/host/HostError.hpp"
#include "platform/host/HostFunctions.hpp"
#include "platform/host/Qcos.hpp"
#include "platform/host/Vm.hpp"
#include "platform/host/lang/Language.hpp"
#include "platform/services/ImmutableGraph.hpp"
#include "services/AnalyzerRegistry.hpp"
#include "services/HostClassNames.hpp"
#include "services/HostErrors.hpp"
#include "services/HostExecution.hpp"

#include <algorithm>
#include <csignal>

namespace dependency::services {

namespace {

using attribute::Attribute;
using attribute::AttributeAnalyzer;
using attribute::GraphAttributes;

// Runs one chosen analyzer for the session: the observer hears of each node
// (from the first analyzer of the list) and of each finding, and a failure
// names the analyzer and the node.
class ObservedAnalyzer final : public AttributeAnalyzer {
public:
    ObservedAnalyzer(std::string const& name, std::shared_ptr<AttributeAnalyzer> inner, AnalysisObserver& observer,
                     bool watchesNodes)
        : name_(name), inner_(std::move(inner)), observer_(observer), watchesNodes_(watchesNodes) {}

    std::vector<std::shared_ptr<Attribute>> analyze(std::shared_ptr<graph::Node> const& node,
                                                    std::shared_ptr<graph::Graph const> const& graph) const override {
        if (watchesNodes_) {
            if (observer_.stopRequested() || qvm::isInterruptRequested()) {
                throw AnalysisStopped("Interrupted (Ctrl-C): the host code was stopped.");
            }
            observer_.startingNode(*node);
        }
        std::vector<std::shared_ptr<Attribute>> findings;
        try {
            findings = inner_->analyze(node, graph);
        } catch (AnalyzerFailure const&) {
            throw;
        } catch (AnalysisStopped const&) {
            throw;
        } catch (qcos::HostError const& error) {
            if (isInterruption(error)) {
                throw AnalysisStopped(error.what());
            }
            // Host code failed: say where, and through which calls.
            throw AnalyzerFailure(name_, node, describe(error));
        } catch (std::exception const& error) {
            throw AnalyzerFailure(name_, node, foundation::printable::escapeControls(error.what()));
        }
        if (!findings.empty()) {
            observer_.reported(name_, findings);
        }
        return findings;
    }

private:
    std::string const& name_;
    std::shared_ptr<AttributeAnalyzer> inner_;
    AnalysisObserver& observer_;
    bool watchesNodes_;
};

extern "C" void onInterrupt(int) {
    qvm::requestInterrupt();
    // A second Ctrl-C ends the program at once.
    std::signal(SIGINT, SIG_DFL);
}

// Ctrl-C sets the host's interrupt flag while an analysis with host analyzers runs.
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
    return detail::runOnCommandThread<R>(qvm::Factory::getCurrentLocalQVM(), std::move(work), "depattr");
}

// The finding IDs a host analyzer class declares: the IDs of the
// AttributeIdentity values among its constant properties and those of its
// host-language superclasses.
void collectFindingIds(std::string const& className, std::vector<std::string>& ids) {
    auto const info = qcos::omFindClass(className);
    if (!info || info->isNativeBinding()) {
        return;
    }
    for (auto const& property : info->getProperties()) {
        if (property.kind != qcos::QcosProperty::Kind::Constant) {
            continue;
        }
        auto const value = qcos::omGetConstantPropertyShared(className, property.name);
        if (!value || value->getClassName() != AttributeIdentityClassName) {
            continue;
        }
        for (std::size_t i = 0; i < value->getNumberOfElements(); ++i) {
            auto const identity = qcos::factory::impl::validateSelfPointer<attribute::AttributeIdentity>(
                *qcos::cosiGetArrayElement(*value, i));
            auto const& id = identity->getID();
            std::string narrow(id.begin(), id.end());
            if (std::find(ids.begin(), ids.end(), narrow) == ids.end()) {
                ids.push_back(std::move(narrow));
            }
        }
    }
    for (auto const& superclass : info->getSuperclassNames()) {
        collectFindingIds(superclass, ids);
    }
}

}  // namespace

struct AnalysisSession::Host {
    std::vector<HostAnalyzerInfo> infos;
    std::vector<std::shared_ptr<AttributeAnalyzer>> analyzers;  // adapters of the host analyzer objects
};

AnalysisSession::AnalysisSession() {
    select(std::vector<std::string>{});
}

AnalysisSession::AnalysisSession(std::vector<std::filesystem::path> const& hostFolders) {
    if (!hostFolders.empty()) {
        auto host = std::make_unique<Host>();
        try {
            onCommandThread<int>([&] {
                // The library this program is linked with, loaded as the host loads it: its classes and gateways.
                qvm::loadLibrary("libdepattr.so");
                qlang::setSearchPath(hostFolders);
                std::vector<qlang::CodeFile> analyzerFiles;
                for (auto const& folder : hostFolders) {
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
                    if (!qcos::omIsA(file.qualifiedName, AttributeAnalyzerClassName)) {
                        continue;
                    }
                    auto object = std::move(qlang::callFunction(file.qualifiedName, {}, 1).at(0));
                    HostAnalyzerInfo info{file.qualifiedName, {}};
                    collectFindingIds(file.qualifiedName, info.findingIds);
                    host->infos.push_back(std::move(info));
                    host->analyzers.push_back(attribute::fromAttributeAnalyzerScalarQxArray(*object, vm));
                }
                return 0;
            });
        } catch (qcos::HostError const& error) {
            throw foundation::printable::EscapedError(describe(error));
        }
        host_ = std::move(host);
    }
    select(std::vector<std::string>{});
}

AnalysisSession::~AnalysisSession() = default;

std::vector<HostAnalyzerInfo> const& AnalysisSession::hostAnalyzers() const noexcept {
    static std::vector<HostAnalyzerInfo> const none;
    return host_ ? host_->infos : none;
}

void AnalysisSession::select(std::vector<std::string> const& names) {
    std::vector<Chosen> chosen;
    auto const& hosts = hostAnalyzers();
    auto const chooseHost = [&](std::size_t i) { chosen.push_back({hosts[i].name, nullptr, host_->analyzers[i]}); };
    if (names.empty()) {
        for (auto const* description : attribute::builtInAnalyzers()) {
            chosen.push_back({std::string(description->name), description, nullptr});
        }
        for (std::size_t i = 0; i < hosts.size(); ++i) {
            chooseHost(i);
        }
    }
    for (auto const& name : names) {
        if (auto const* description = attribute::findBuiltInAnalyzer(name)) {
            chosen.push_back({name, description, nullptr});
            continue;
        }
        auto const host = std::find_if(hosts.begin(), hosts.end(), [&](auto const& h) { return h.name == name; });
        if (host == hosts.end()) {
            std::string known;
            for (auto const* description : attribute::builtInAnalyzers()) {
                known += (known.empty() ? "" : ", ") + std::string(description->name);
            }
            for (auto const& info : hosts) {
                known += ", " + info.name;
            }
            throw std::invalid_argument("unknown analyzer \"" + name + "\" (known: " + known + ")");
        }
        chooseHost(static_cast<std::size_t>(host - hosts.begin()));
    }
    chosen_ = std::move(chosen);
}

void AnalysisSession::select(std::vector<NamedAnalyzer> const& analyzers) {
    std::vector<Chosen> chosen;
    for (auto const& analyzer : analyzers) {
        chosen.push_back({analyzer.name, nullptr, analyzer.analyzer});
    }
    chosen_ = std::move(chosen);
}

std::vector<std::string> AnalysisSession::selected() const {
    std::vector<std::string> names;
    for (auto const& chosen : chosen_) {
        names.push_back(chosen.name);
    }
    return names;
}

std::shared_ptr<GraphAttributes> AnalysisSession::analyze(std::shared_ptr<graph::Graph const> const& graph,
                                                          AnalysisObserver& observer) const {
    if (!host_) {
        std::vector<std::shared_ptr<AttributeAnalyzer>> analyzers;
        for (auto const& chosen : chosen_) {
            auto analyzer = chosen.builtIn != nullptr ? chosen.builtIn->create() : chosen.made;
            analyzers.push_back(
                std::make_shared<ObservedAnalyzer>(chosen.name, std::move(analyzer), observer, analyzers.empty()));
        }
        return attribute::analyzeGraph(graph, analyzers);
    }
    // The host's road: the registry holds the chosen analyzers, and analyzeInQorvex runs them.
    InterruptHandler interrupts;
    try {
        auto result = onCommandThread<std::shared_ptr<GraphAttributes>>([&] {
            auto const vm = qvm::Factory::getCurrentLocalQVM();
            qcos::registry::clearAttributeAnalyzers();
            bool first = true;
            for (auto const& chosen : chosen_) {
                auto analyzer = chosen.made;
                if (chosen.builtIn != nullptr) {
                    auto const made = qvm::callHostFunction(chosen.builtIn->gateway, {}, 1);
                    analyzer = attribute::fromAttributeAnalyzerScalarQxArray(*made.at(0), vm);
                }
                // The registry gives the wrapper back as itself.
                auto const observed = std::make_shared<ObservedAnalyzer>(chosen.name, analyzer, observer, first);
                first = false;
                auto const object = attribute::toAttributeAnalyzerQxArray(observed);
                qcos::registry::addAttributeAnalyzer(qcos::omGetArrayElement(*object, 0));
            }
            auto const graphObject = qcos::omCreateQCOSScalar(toGraphObject(std::make_shared<ImmutableGraph>(graph)));
            qxArray const* inputs[] = {graphObject.get()};
            auto const outputs = qvm::callHostFunction("analyzeInQorvex", inputs, 1);
            auto analysis = matrix::from_qorvex<GraphAttributes>(*outputs.at(0));
            qcos::registry::clearAttributeAnalyzers();
            return analysis;
        });
        qvm::clearInterrupt();
        return result;
    } catch (qcos::HostError const& error) {
        qcos::registry::clearAttributeAnalyzers();
        qvm::clearInterrupt();
        if (isInterruption(error)) {
            throw AnalysisStopped(error.what());
        }
        throw foundation::printable::EscapedError(describe(error));
    } catch (...) {
        qcos::registry::clearAttributeAnalyzers();
        qvm::clearInterrupt();
        throw;
    }
}

}  // namespace dependency::services
