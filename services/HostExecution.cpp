#include "services/HostExecution.hpp"

#include "platform/services/NullStreamBuffer.hpp"

namespace dependency::services::detail {

cmddistributor::RunOptions const& nullSinkRunOptions() {
    // Every kind of host text goes to the sinks, and the sinks drop it.
    static cmddistributor::RunOptions const options = [] {
        static auto const buffer = createNullStreamBuffer();
        cmddistributor::SinkTraits const everything{true, true};
        return cmddistributor::RunOptions(buffer, buffer, everything, everything);
    }();
    return options;
}

}  // namespace dependency::services::detail
