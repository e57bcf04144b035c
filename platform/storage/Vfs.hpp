#pragma once
// Resources addressed by absolute identifiers ("file:///abs/path") on a
// storage system, with folders and files inside them. The one storage system
// of this build is the local file system.

#include <cstddef>
#include <filesystem>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>

namespace foundation::storage::vfs {

// A resource that cannot be reached or read. what() names the resource.
class StorageError : public std::runtime_error {
public:
    StorageError(std::string resource, std::string const& reason);
    std::string const& resource() const noexcept { return resource_; }
    std::string const& reason() const noexcept { return reason_; }

private:
    std::string resource_;
    std::string reason_;
};

// An absolute resource identifier: a scheme and an absolute, lexically normal
// path (UTF-16) below it.
class AbsoluteIRI {
public:
    AbsoluteIRI(std::u16string scheme, std::u16string path);

    std::u16string const& scheme() const noexcept { return scheme_; }
    std::u16string const& path() const noexcept { return path_; }
    // "<scheme>://<path>" with characters outside the unreserved set
    // percent-encoded as UTF-8 bytes, e.g. "file:///opt/my%20kit".
    std::string toString() const;

    // The identifier of `relativeName` below this one. Throws
    // std::invalid_argument for an absolute name or one that climbs out with "..".
    AbsoluteIRI resolve(std::u16string_view relativeName) const;

    friend bool operator==(AbsoluteIRI const&, AbsoluteIRI const&) = default;

private:
    std::u16string scheme_;
    std::u16string path_;
};

// Makes `path` absolute (against the current folder when it is relative) and
// lexically normal, under `scheme`. Throws std::invalid_argument for an empty
// scheme or path.
AbsoluteIRI toAbsoluteIRI(std::u16string_view scheme, std::u16string_view path);

// Where resources live. Implementations are safe to use from several threads.
class StorageSystem {
public:
    virtual ~StorageSystem();
    // Whether the system serves identifiers of this scheme.
    virtual bool handles(std::u16string_view scheme) const = 0;
    // Whole content of a resource. Throws StorageError naming it when it cannot
    // be read or holds more than `maxBytes` (found before reading), and
    // std::invalid_argument for a scheme the system does not serve.
    virtual std::string readAll(AbsoluteIRI const& resource, std::size_t maxBytes) const = 0;
    virtual bool exists(AbsoluteIRI const& resource) const = 0;
    // A name for the resource in messages: the local path for files.
    virtual std::string displayName(AbsoluteIRI const& resource) const = 0;
};

// The process's storage system: the local file system, scheme "file".
StorageSystem& GetStorageSystemReference();

class Folder {
public:
    // Throws std::invalid_argument when `storage` does not serve the identifier's scheme.
    Folder(AbsoluteIRI identifier, StorageSystem& storage);

    AbsoluteIRI const& identifier() const noexcept { return identifier_; }
    StorageSystem& storage() const noexcept { return *storage_; }

private:
    AbsoluteIRI identifier_;
    StorageSystem* storage_;
};

class File {
public:
    // A file inside `folder`, named relative to it ("resources/pkgdef.json").
    // Throws std::invalid_argument for an absolute name or one that leaves the folder.
    File(Folder const& folder, std::u16string_view relativeName);

    AbsoluteIRI const& identifier() const noexcept { return identifier_; }
    StorageSystem& storage() const noexcept { return *storage_; }
    std::string readAll(std::size_t maxBytes = std::numeric_limits<std::size_t>::max()) const {
        return storage_->readAll(identifier_, maxBytes);
    }
    bool exists() const { return storage_->exists(identifier_); }
    std::string displayName() const { return storage_->displayName(identifier_); }

private:
    AbsoluteIRI identifier_;
    StorageSystem* storage_;
};

}  // namespace foundation::storage::vfs
