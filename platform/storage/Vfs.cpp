#include "platform/storage/Vfs.hpp"

#include "platform/fl/FileSystem.hpp"

#include <boost/locale/encoding_utf.hpp>

#include <system_error>

namespace foundation::storage::vfs {

namespace {

std::string utf8(std::u16string_view text) {
    return boost::locale::conv::utf_to_utf<char>(text.data(), text.data() + text.size());
}

std::u16string utf16(std::string const& text) {
    return boost::locale::conv::utf_to_utf<char16_t>(text);
}

bool isUnreserved(unsigned char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
           c == '_' || c == '~' || c == '/';
}

class LocalFileSystem final : public StorageSystem {
public:
    bool handles(std::u16string_view scheme) const override { return scheme == u"file"; }

    std::string readAll(AbsoluteIRI const& resource, std::size_t maxBytes) const override {
        std::filesystem::path const path = localPath(resource);
        try {
            return fl::filesystem::read_file(path.string(), maxBytes);
        } catch (fl::filesystem::FileSystemError const& error) {
            throw StorageError(path.string(), error.reason());
        }
    }

    bool exists(AbsoluteIRI const& resource) const override {
        std::error_code error;
        return std::filesystem::exists(localPath(resource), error);
    }

    std::string displayName(AbsoluteIRI const& resource) const override { return localPath(resource).string(); }

private:
    std::filesystem::path localPath(AbsoluteIRI const& resource) const {
        if (!handles(resource.scheme())) {
            throw std::invalid_argument("the local file system does not serve \"" + resource.toString() + "\"");
        }
        return std::filesystem::path(utf8(resource.path()));
    }
};

std::filesystem::path checkedRelative(std::u16string_view relativeName) {
    std::filesystem::path const name = std::filesystem::path(utf8(relativeName)).lexically_normal();
    if (relativeName.empty() || name.is_absolute() || name.has_root_path()) {
        throw std::invalid_argument("\"" + utf8(relativeName) + "\" is not a relative name");
    }
    if (!name.empty() && *name.begin() == "..") {
        throw std::invalid_argument("\"" + utf8(relativeName) + "\" leaves its folder");
    }
    return name;
}

}  // namespace

StorageError::StorageError(std::string resource, std::string const& reason)
    : std::runtime_error(resource + ": " + reason), resource_(std::move(resource)), reason_(reason) {}

AbsoluteIRI::AbsoluteIRI(std::u16string scheme, std::u16string path)
    : scheme_(std::move(scheme)), path_(std::move(path)) {}

std::string AbsoluteIRI::toString() const {
    static constexpr char hex[] = "0123456789ABCDEF";
    std::string text = utf8(scheme_) + "://";
    for (unsigned char c : utf8(path_)) {
        if (isUnreserved(c)) {
            text += static_cast<char>(c);
        } else {
            text += '%';
            text += hex[c >> 4];
            text += hex[c & 0xF];
        }
    }
    return text;
}

AbsoluteIRI AbsoluteIRI::resolve(std::u16string_view relativeName) const {
    std::filesystem::path const base(utf8(path_));
    return AbsoluteIRI(scheme_, utf16((base / checkedRelative(relativeName)).lexically_normal().string()));
}

AbsoluteIRI toAbsoluteIRI(std::u16string_view scheme, std::u16string_view path) {
    if (scheme.empty() || path.empty()) {
        throw std::invalid_argument("an absolute resource identifier needs a scheme and a path");
    }
    std::filesystem::path absolute = std::filesystem::absolute(std::filesystem::path(utf8(path))).lexically_normal();
    if (!absolute.has_filename() && absolute.has_relative_path()) {
        absolute = absolute.parent_path();  // a folder's identifier carries no trailing separator
    }
    return AbsoluteIRI(std::u16string(scheme), utf16(absolute.string()));
}

StorageSystem::~StorageSystem() = default;

StorageSystem& GetStorageSystemReference() {
    static LocalFileSystem localFileSystem;
    return localFileSystem;
}

Folder::Folder(AbsoluteIRI identifier, StorageSystem& storage)
    : identifier_(std::move(identifier)), storage_(&storage) {
    if (!storage.handles(identifier_.scheme())) {
        throw std::invalid_argument("the storage system does not serve \"" + identifier_.toString() + "\"");
    }
}

File::File(Folder const& folder, std::u16string_view relativeName)
    : identifier_(folder.identifier().resolve(relativeName)), storage_(&folder.storage()) {}

}  // namespace foundation::storage::vfs
