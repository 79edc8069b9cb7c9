#pragma once

#include "platform/foundation/Value.h"

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace tessel {

class KeyedUnarchiver;

struct UnarchiveOptions {
    // When set, the root must be an object of this class (after aliases);
    // anything else reads as absent.
    std::string expectedClass;
    // When non-empty, only these classes may appear anywhere; any other class
    // fails the whole decode.
    std::set<std::string> allowedClasses;
    // Reads objects of classes nobody registered as null instead of failing,
    // so that a collection keeps what it can.
    bool unknownClassesDecodeAsNull = false;
};

// The keyed archive every persisted file uses: a binary property list whose
// root dictionary names the format and holds the archived value. Layout and
// limits are described in docs/formats.md.
class KeyedArchive {
public:
    using Factory = std::function<std::shared_ptr<Archivable>(KeyedUnarchiver&)>;

    struct RegisteredClass {
        std::string name;
        Factory factory;
    };

    static constexpr const char* formatKey = "$format";
    static constexpr const char* versionKey = "$formatVersion";
    static constexpr const char* rootKey = "$value";
    static constexpr std::string_view formatName = "TesselKeyedArchive";
    static constexpr int64_t formatVersion = 1;

    // Markers: the first key of a dictionary that stands for something else.
    // Other keys beginning with '$' are stored with one more '$'.
    static constexpr const char* nullMarker = "$null";
    static constexpr const char* dateMarker = "$date";
    static constexpr const char* objectMarker = "$object";

    // Archives are small; anything larger is refused before parsing.
    static constexpr size_t maximumInputLength = 16 * 1024 * 1024;

    // Thread-safe, at any time. A later registration under the same name replaces
    // the earlier one. A factory may answer null: the object then reads as null.
    static void registerClass(std::string name, Factory factory);
    // Objects archived under oldName decode as currentName.
    static void registerAlias(std::string oldName, std::string currentName);
    // The class an archived name decodes into, following aliases; absent if unknown.
    static std::optional<RegisteredClass> registeredClass(std::string_view archivedName);
    // Whether object belongs to the class named className, or that an alias names.
    static bool isObjectOfClass(const Archivable& object, std::string_view className);

    // Absent with a reason for a value that cannot be archived: strings or keys
    // that are not UTF-8 or hold NUL, nesting beyond PropertyList::maximumDepth.
    static std::optional<Bytes> archivedData(const Value& root, std::string* error = nullptr);
    // Absent with a reason for anything malformed or not allowed.
    static std::optional<Value> unarchive(const Bytes& data, std::string* error = nullptr);
    static std::optional<Value> unarchive(
        const Bytes& data, const UnarchiveOptions& options, std::string* error = nullptr);
};

} // namespace tessel
