#pragma once
// Package definitions: the file in a product's root folder that names the
// package and the packages it depends on (format in docs/package-definition.md).

#include "platform/foundation/SourceText.hpp"
#include "platform/storage/Vfs.hpp"

#include <boost/uuid/uuid.hpp>

#include <cstddef>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace foundation::packages {

// Where a product keeps its package definition, relative to its root folder.
inline constexpr std::u16string_view PackageDefRelativeToRoot = u"resources/pkgdef.json";

// The largest package definition read; a larger one is an error, found before it is read.
inline constexpr std::size_t maxPackageDefinitionBytes = 16 << 20;

// One declared dependency: the package's name and unique ID.
class ComponentRangeIdentifier {
public:
    ComponentRangeIdentifier(std::u16string name, boost::uuids::uuid const& uniqueId);

    std::u16string const& GetName() const noexcept { return name_; }
    boost::uuids::uuid const& GetUniqueId() const noexcept { return uniqueId_; }

private:
    std::u16string name_;
    boost::uuids::uuid uniqueId_;
};

class PackageDescriptor {
public:
    PackageDescriptor(std::u16string name, boost::uuids::uuid const& uniqueId, std::u16string version,
                      std::vector<ComponentRangeIdentifier> dependencies);

    std::u16string const& GetName() const noexcept { return name_; }
    boost::uuids::uuid const& GetUniqueId() const noexcept { return uniqueId_; }
    std::u16string const& GetVersion() const noexcept { return version_; }
    // The declared dependencies in the order the definition lists them.
    std::vector<ComponentRangeIdentifier> const& GetDependencyRanges() const noexcept { return dependencies_; }

private:
    std::u16string name_;
    boost::uuids::uuid uniqueId_;
    std::u16string version_;
    std::vector<ComponentRangeIdentifier> dependencies_;
};

// A package definition that cannot be read or is malformed. what() reads
// "<file>:<line>:<column>: <reason>"; line and column are 1-based, both 0 when
// the error has no position in the file (an unreadable file).
class PackageDefinitionError : public foundation::source::FileError {
public:
    using FileError::FileError;
};

// Either a descriptor or the reason there is none. Taking the descriptor out of
// a failed result throws that reason (a PackageDefinitionError), so a caller
// that does not check first still stops with a clear error.
class PackageDescriptorResult {
public:
    explicit PackageDescriptorResult(std::shared_ptr<PackageDescriptor const> descriptor);
    explicit PackageDescriptorResult(std::exception_ptr failure);

    bool hasDescriptor() const noexcept { return descriptor_ != nullptr; }
    explicit operator bool() const noexcept { return hasDescriptor(); }
    std::exception_ptr failure() const noexcept { return failure_; }

    PackageDescriptor const& descriptor() const;
    PackageDescriptor const& operator*() const { return descriptor(); }
    PackageDescriptor const* operator->() const { return &descriptor(); }

private:
    std::shared_ptr<PackageDescriptor const> descriptor_;
    std::exception_ptr failure_;
};

class PackageDescriptorFactory {
public:
    // Reads the definition file. Failures to read or parse it are held in the
    // result; `options` must be 0 (no options are defined), anything else
    // throws std::invalid_argument at once.
    PackageDescriptorResult create(foundation::storage::vfs::File const& definition, int options) const;
};

// Parses the text of a package definition; throws PackageDefinitionError
// naming `fileName`, with the line and column of the offending text.
std::shared_ptr<PackageDescriptor const> parsePackageDefinition(std::string_view text, std::string const& fileName);

// The process's factory; stateless, usable from any thread.
PackageDescriptorFactory const& GetPackageDescriptorFactory();

}  // namespace foundation::packages
