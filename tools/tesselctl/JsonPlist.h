#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tessel::ctl {

// Keys keep the order they came in, the daemon's or the program's own.
using Json = nlohmann::ordered_json;

// Property lists to JSON and back, each bounded in depth. JSON has no dates
// and no data: from a property list, dates become ISO 8601 text in the local
// zone and data base64 text; JSON null has no property-list form.
class JsonPlist {
public:
    static constexpr size_t maximumDepth = 32;
    // Of text or a file handed to the daemon.
    static constexpr size_t maximumInputLength = 1024 * 1024;

    // A binary or XML property list; a failure to read it is the daemon's.
    static Json toJson(const std::vector<uint8_t>& plist);
    // A binary property list; a value it cannot hold is a usage error.
    static std::vector<uint8_t> toBinary(const Json& value);

    // JSON text from the user; what names it in the usage error.
    static Json parseJson(std::string_view text, const std::string& what);
    // The binary property list of a dictionary given as a JSON object or as
    // a property list (binary or XML), as a user hands it in.
    static std::vector<uint8_t> dictionaryFromUser(std::string_view text, const std::string& what);

    static std::string base64(const uint8_t* bytes, size_t length);
};

} // namespace tessel::ctl
