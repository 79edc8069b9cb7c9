#include "tesselctl/InputFile.h"

#include "tesselctl/CommandError.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace tessel::ctl {

std::string InputFile::read(const std::string& path, size_t maximumLength)
{
    int fd = path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        throw CommandError::usage("cannot read " + path + ": " + std::strerror(errno));
    std::string content;
    char chunk[65536];
    // One byte past the bound tells a file that is too long, however it grows.
    while (content.size() <= maximumLength) {
        ssize_t count = ::read(fd, chunk, std::min(sizeof chunk, maximumLength + 1 - content.size()));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0) {
            int error = errno;
            if (fd != STDIN_FILENO)
                close(fd);
            throw CommandError::usage("cannot read " + path + ": " + std::strerror(error));
        }
        if (count == 0)
            break;
        content.append(chunk, static_cast<size_t>(count));
    }
    if (fd != STDIN_FILENO)
        close(fd);
    if (content.size() > maximumLength)
        throw CommandError::usage(path + " is longer than " + std::to_string(maximumLength) + " bytes");
    return content;
}

} // namespace tessel::ctl
