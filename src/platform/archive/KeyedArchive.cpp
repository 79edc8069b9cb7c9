#include "platform/archive/KeyedArchive.h"

#include "platform/archive/KeyedArchiver.h"
#include "platform/archive/KeyedUnarchiver.h"
#include "platform/archive/PropertyList.h"

#include <cstring>
#include <map>
#include <mutex>
#include <new>
#include <plist/plist.h>
#include <shared_mutex>

namespace tessel {

namespace {

    struct Registry {
        std::shared_mutex lock;
        std::map<std::string, KeyedArchive::Factory, std::less<>> factories;
        std::map<std::string, std::string, std::less<>> aliases;
    };

    Registry& registry()
    {
        // Never destroyed: static registrars and late decoders may outlive main().
        static Registry* instance = new Registry;
        return *instance;
    }

    // Alias chains are short; the bound only stops a cycle.
    constexpr int maximumAliasHops = 16;

    struct NodeDeleter {
        void operator()(plist_t node) const { plist_free(node); }
    };
    using NodePointer = std::unique_ptr<void, NodeDeleter>;

    template <typename T> std::optional<T> fail(std::string* error, std::string reason)
    {
        if (error)
            *error = std::move(reason);
        return std::nullopt;
    }

} // namespace

void KeyedArchive::registerClass(std::string name, Factory factory)
{
    auto& classes = registry();
    std::unique_lock guard(classes.lock);
    classes.factories.insert_or_assign(std::move(name), std::move(factory));
}

void KeyedArchive::registerAlias(std::string oldName, std::string currentName)
{
    auto& classes = registry();
    std::unique_lock guard(classes.lock);
    classes.aliases.insert_or_assign(std::move(oldName), std::move(currentName));
}

std::optional<KeyedArchive::RegisteredClass> KeyedArchive::registeredClass(std::string_view archivedName)
{
    auto& classes = registry();
    std::shared_lock guard(classes.lock);
    std::string_view name = archivedName;
    for (int hop = 0; hop <= maximumAliasHops; ++hop) {
        // A registered class wins over an alias of the same name.
        if (auto found = classes.factories.find(name); found != classes.factories.end())
            return RegisteredClass { found->first, found->second };
        auto alias = classes.aliases.find(name);
        if (alias == classes.aliases.end())
            return std::nullopt;
        name = alias->second;
    }
    return std::nullopt;
}

bool KeyedArchive::isObjectOfClass(const Archivable& object, std::string_view className)
{
    std::string name = object.className();
    if (name == className)
        return true;
    auto registered = registeredClass(className);
    return registered && registered->name == name;
}

std::optional<Bytes> KeyedArchive::archivedData(const Value& value, std::string* error)
{
    try {
        NodePointer root(plist_new_dict());
        std::string reason;
        KeyedArchiver archiver(root.get(), 0, reason);
        archiver.setRawItem(formatKey, plist_new_string(formatName.data()));
        archiver.setRawItem(versionKey, plist_new_uint(formatVersion));
        void* node = archiver.node(value, 0);
        if (!node)
            return fail<Bytes>(error, reason.empty() ? "value cannot be archived" : reason);
        archiver.setRawItem(rootKey, node);

        char* bytes = nullptr;
        uint32_t length = 0;
        plist_to_bin(static_cast<plist_t>(root.get()), &bytes, &length);
        if (!bytes)
            return fail<Bytes>(error, "could not serialize the archive");
        Bytes result(reinterpret_cast<uint8_t*>(bytes), reinterpret_cast<uint8_t*>(bytes) + length);
        plist_to_bin_free(bytes);
        return result;
    } catch (const std::bad_alloc&) {
        return fail<Bytes>(error, "out of memory while archiving");
    }
}

std::optional<Value> KeyedArchive::unarchive(const Bytes& data, std::string* error)
{
    return unarchive(data, UnarchiveOptions(), error);
}

std::optional<Value> KeyedArchive::unarchive(
    const Bytes& data, const UnarchiveOptions& options, std::string* error)
{
    if (data.size() > maximumInputLength)
        return fail<Value>(error, "archive too large");
    if (data.size() < 8 || std::memcmp(data.data(), "bplist00", 8) != 0)
        return fail<Value>(error, "not a binary property list");
    std::string reason;
    if (!PropertyList::checkStructure(data.data(), data.size(), &reason))
        return fail<Value>(error, reason);

    try {
        plist_t parsed = nullptr;
        plist_from_bin(
            reinterpret_cast<const char*>(data.data()), static_cast<uint32_t>(data.size()), &parsed);
        NodePointer root(parsed);
        if (!parsed || plist_get_node_type(parsed) != PLIST_DICT)
            return fail<Value>(error, "not a keyed archive");
        plist_t format = plist_dict_get_item(parsed, formatKey);
        plist_t version = plist_dict_get_item(parsed, versionKey);
        plist_t value = plist_dict_get_item(parsed, rootKey);
        uint64_t versionNumber = 0;
        if (version && plist_get_node_type(version) == PLIST_UINT)
            plist_get_uint_val(version, &versionNumber);
        uint64_t formatLength = 0;
        const char* formatText = format ? plist_get_string_ptr(format, &formatLength) : nullptr;
        if (!formatText || std::string_view(formatText, formatLength) != formatName)
            return fail<Value>(error, "not a keyed archive");
        if (versionNumber != static_cast<uint64_t>(formatVersion))
            return fail<Value>(error, "keyed archive of an unsupported version");
        if (!value || plist_dict_get_size(parsed) != 3)
            return fail<Value>(error, "keyed archive has a malformed root");

        auto result = KeyedUnarchiver::decodeRoot(value, options, reason);
        if (!result)
            return fail<Value>(error, reason);
        if (!options.expectedClass.empty()
            && (!result->isObject() || !isObjectOfClass(*result->objectValue(), options.expectedClass)))
            return fail<Value>(error, "archive root is not of class " + options.expectedClass);
        return result;
    } catch (const std::exception& exception) {
        return fail<Value>(error, std::string("decoding failed: ") + exception.what());
    }
}

} // namespace tessel
