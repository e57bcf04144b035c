#pragma once
// Running work on the host VM's command thread. Host values may be touched
// there only; every other thread hands its work to the VM's command
// distributor and blocks until the work is done.

#include "platform/host/Vm.hpp"

#include <functional>
#include <memory>
#include <string>

namespace dependency::services::detail {

// Run options whose output and error sinks both discard everything: one
// process-wide null stream buffer, made on first use, serves as both.
cmddistributor::RunOptions const& nullSinkRunOptions();

// Hands `work` to the VM's command distributor under `label`, waits, and
// returns its result or rethrows its exception. On the command thread itself
// the distributor runs the work at once. A VM without a distributor runs
// nothing: cmddistributor::RuntimeException (status 2) "No CmdDistributor available".
template <class R>
R runOnCommandThread(std::shared_ptr<qvm::QVM> const& vm, std::function<R()> work, std::string label) {
    auto const& options = nullSinkRunOptions();
    auto const id = qvm::detail::createID();
    auto const distributorAndSinks = qvm::detail::getCmdDistributorAndSinks(vm, options);
    if (!distributorAndSinks.distributor) {
        qvm::detail::NullCmdDistributorTaskReference<R> task;
        return task.get();
    }
    auto iip = std::make_shared<cmddistributor::PackagedTaskIIP<R>>(std::move(work), std::move(label));
    auto request = std::make_shared<cmddistributor::Request<R>>(id, std::move(iip));
    // The task reference waits for the procedure's end, then takes its result.
    qvm::detail::CmdDistributorTaskReference<R> task(
        distributorAndSinks.distributor->enqueueWithFuture(request, options), request->getIIP());
    return task.get();
}

}  // namespace dependency::services::detail
