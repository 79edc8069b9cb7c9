#pragma once

#include "platform/foundation/Value.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tessel {

// File operations on paths. Failures answer false or absent and, when asked,
// an error text of the form "operation path: reason".
class FileManager {
public:
    // What changes whenever a file is replaced or rewritten: lets a reader keep
    // a decoded copy and notice when it went stale.
    struct FileIdentity {
        uint64_t device = 0;
        uint64_t inode = 0;
        int64_t size = 0;
        int64_t modifiedNanoseconds = 0;
        bool operator==(const FileIdentity&) const = default;
    };

    static constexpr size_t defaultMaximumLength = 256 * 1024 * 1024;

    // Writes a temporary file next to the target and renames it over the target,
    // so readers see either the old or the new contents, never a mix. When
    // durable, the file and then its directory are synced so the rename survives
    // a power loss. On failure the old target is untouched and the temporary
    // file is gone.
    static bool writeAtomically(const std::string& path, const void* bytes, size_t length,
        std::string* error = nullptr, bool durable = true);
    static bool writeAtomically(
        const std::string& path, const Bytes& bytes, std::string* error = nullptr, bool durable = true)
    {
        return writeAtomically(path, bytes.data(), bytes.size(), error, durable);
    }

    // Refuses files longer than maximumLength instead of reading them.
    static std::optional<Bytes> contentsAtPath(
        const std::string& path, std::string* error = nullptr, size_t maximumLength = defaultMaximumLength);
    // Follows symbolic links.
    static bool fileExistsAtPath(const std::string& path, bool* isDirectory = nullptr);
    // Looks at the last component only.
    static bool isSymbolicLinkAtPath(const std::string& path);
    // Whole seconds since 1970.
    static std::optional<FileIdentity> identityOfItemAtPath(const std::string& path);
    // Removes the temporary files that writes killed midway left in a directory;
    // only for a directory whose writers are all gone. Answers how many.
    static size_t removeAbandonedTemporaryFiles(const std::string& directory);
    static std::optional<int64_t> modificationTime(const std::string& path, std::string* error = nullptr);
    // Entry names without "." and "..", sorted by name.
    static std::optional<std::vector<std::string>> contentsOfDirectoryAtPath(
        const std::string& path, std::string* error = nullptr);
    // Files, links and whole directory trees; links are removed, never followed.
    static bool removeItemAtPath(const std::string& path, std::string* error = nullptr);
    // Fails when the destination exists. Across file systems only regular files
    // are moved (copied, then the source removed).
    static bool moveItemAtPath(const std::string& from, const std::string& to, std::string* error = nullptr);
    // Mode 0755. With intermediates, an existing directory is success.
    static bool createDirectoryAtPath(
        const std::string& path, bool withIntermediateDirectories, std::string* error = nullptr);

    // $TESSEL_LIBRARY_DIR, else ${XDG_DATA_HOME:-$HOME/.local/share}/tessel/Library.
    static std::string libraryDirectory();
};

} // namespace tessel
