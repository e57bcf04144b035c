#include "services/HostObjects.hpp"

namespace dependency::services::detail {

qcos::COSInterfacePtr toHostObject(std::shared_ptr<Shareable> const& native) {
    qcos::factory::basic::BindingRegistry::announce(
        native, qcos::internal::makeInterned(native ? native->getFullyQualifiedQcosTypeName() : std::string()));
    return qcos::factory::full::acquireReference(native);
}

}  // namespace dependency::services::detail
