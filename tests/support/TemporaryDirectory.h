#pragma once

#include "platform/files/FileManager.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

namespace tessel {

// A fresh directory under $TMPDIR (or /tmp), removed with everything in it.
class TemporaryDirectory {
public:
    TemporaryDirectory()
    {
        const char* base = getenv("TMPDIR");
        std::string pattern = std::string(base && *base ? base : "/tmp") + "/tessel-test-XXXXXX";
        if (mkdtemp(pattern.data()))
            _path = pattern;
        else
            ADD_FAILURE() << "mkdtemp " << pattern;
    }
    ~TemporaryDirectory()
    {
        if (!_path.empty())
            FileManager::removeItemAtPath(_path);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::string& path() const { return _path; }
    std::string operator/(const std::string& name) const { return _path + "/" + name; }

private:
    std::string _path;
};

} // namespace tessel
