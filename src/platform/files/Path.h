#pragma once

#include <string>
#include <string_view>

namespace tessel {

// String operations on "/"-separated paths. Nothing here touches the file
// system; standardizing() only reads HOME to expand a leading "~".
class Path {
public:
    // Joins with exactly one "/"; an empty side answers the other one.
    static std::string appendingComponent(std::string_view base, std::string_view component);
    // "/a/b/" -> "b", "/" -> "/", "" -> "".
    static std::string lastComponent(std::string_view path);
    // "/a/b" -> "/a", "/a" -> "/", "a" -> "", "/" -> "/".
    static std::string deletingLastComponent(std::string_view path);
    // The text after the last "." of the last component, without the dot. A
    // leading dot names a hidden file rather than starting an extension, and a
    // trailing dot is no extension either: ".profile" and "notes." have none.
    static std::string extension(std::string_view path);
    // Removes "." and the extension when extension() has one; otherwise the
    // path without trailing slashes.
    static std::string deletingExtension(std::string_view path);
    // "a/b" + "txt" -> "a/b.txt"; an empty extension or a path without a last
    // component ("", "/") comes back as it was.
    static std::string appendingExtension(std::string_view path, std::string_view extension);
    // Expands a leading "~" or "~/" from HOME, drops "." components and empty
    // ones ("//"), resolves ".." against the component before it (never above
    // "/" for absolute paths; kept at the front of relative ones) and removes a
    // trailing "/". "/" stays "/", an empty path stays empty and a relative path
    // that resolves to nothing is ".".
    static std::string standardizing(std::string_view path);
};

} // namespace tessel
