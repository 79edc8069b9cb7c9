#pragma once

#include "tesselctl/JsonPlist.h"
#include "tesselctl/NotificationJson.h"

#include <string>
#include <string_view>
#include <vector>

namespace tessel::ctl {

// Standard output, readable or JSON. Text that came from applications is
// printed with its control characters escaped, so that it cannot drive the
// terminal or break a line in two.
class Output {
public:
    explicit Output(bool json);

    bool json() const { return _json; }

    void document(const Json& value) const;
    // One compact line, flushed at once for scripts that wait for it.
    void jsonLine(const Json& value) const;
    void line(std::string_view text) const;
    // "key: value" lines.
    void lines(const Lines& lines) const;
    // Aligned columns under their headers.
    void table(const std::vector<std::string>& headers, const std::vector<std::vector<std::string>>& rows) const;

    static std::string printable(std::string_view text);

private:
    bool _json;
};

} // namespace tessel::ctl
