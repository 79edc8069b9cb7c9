#pragma once

#include "tesselctl/Invocation.h"
#include "tesselctl/JsonPlist.h"

#include <string>

namespace tessel::ctl {

// The daemon and its applications, through the control service.
class ApplicationCommands {
public:
    static void status(const Invocation& invocation);
    static void apps(const Invocation& invocation);
    static void delivered(const Invocation& invocation);
    static void clear(const Invocation& invocation);

    // A value of the daemon's records for people: text as it is, dates in
    // local time, lists joined, "-" for none.
    static std::string readable(const Json& record, const char* key);
    // The answer as a JSON value of the type expected, else the daemon's failure.
    static Json answer(const std::vector<uint8_t>& plist, Json::value_t type, const char* operation);
};

} // namespace tessel::ctl
