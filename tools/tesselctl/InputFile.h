#pragma once

#include <cstddef>
#include <string>

namespace tessel::ctl {

// A file the user names, read whole up to a bound; "-" is standard input.
// Failures are usage errors naming the file.
class InputFile {
public:
    static std::string read(const std::string& path, size_t maximumLength);
};

} // namespace tessel::ctl
