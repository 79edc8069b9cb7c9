#include "platform/files/Path.h"

#include <cstdlib>
#include <vector>

namespace tessel {

namespace {

    // Trailing slashes carry no meaning except in "/" itself.
    std::string_view trimmingTrailingSlashes(std::string_view path)
    {
        while (path.size() > 1 && path.back() == '/')
            path.remove_suffix(1);
        return path;
    }

    // Position of the dot that starts the extension of the (trimmed) path, or npos.
    size_t extensionDot(std::string_view trimmed)
    {
        size_t slash = trimmed.rfind('/');
        size_t start = slash == std::string_view::npos ? 0 : slash + 1;
        size_t dot = trimmed.rfind('.');
        if (dot == std::string_view::npos || dot < start || dot == start || dot + 1 == trimmed.size())
            return std::string_view::npos;
        return dot;
    }

} // namespace

std::string Path::appendingComponent(std::string_view base, std::string_view component)
{
    if (base.empty())
        return std::string(component);
    while (!component.empty() && component.front() == '/')
        component.remove_prefix(1);
    if (component.empty())
        return std::string(base);
    std::string result(base);
    if (result.back() != '/')
        result += '/';
    result += component;
    return result;
}

std::string Path::lastComponent(std::string_view path)
{
    path = trimmingTrailingSlashes(path);
    if (path == "/")
        return "/";
    size_t slash = path.rfind('/');
    return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

std::string Path::deletingLastComponent(std::string_view path)
{
    path = trimmingTrailingSlashes(path);
    if (path == "/")
        return "/";
    size_t slash = path.rfind('/');
    if (slash == std::string_view::npos)
        return "";
    return std::string(trimmingTrailingSlashes(path.substr(0, slash + 1)));
}

std::string Path::extension(std::string_view path)
{
    path = trimmingTrailingSlashes(path);
    size_t dot = extensionDot(path);
    return dot == std::string_view::npos ? std::string() : std::string(path.substr(dot + 1));
}

std::string Path::deletingExtension(std::string_view path)
{
    path = trimmingTrailingSlashes(path);
    size_t dot = extensionDot(path);
    return std::string(dot == std::string_view::npos ? path : path.substr(0, dot));
}

std::string Path::appendingExtension(std::string_view path, std::string_view extension)
{
    std::string_view trimmed = trimmingTrailingSlashes(path);
    if (extension.empty() || trimmed.empty() || trimmed == "/")
        return std::string(path);
    std::string result(trimmed);
    result += '.';
    result += extension;
    return result;
}

std::string Path::standardizing(std::string_view path)
{
    std::string expanded;
    if (!path.empty() && path.front() == '~' && (path.size() == 1 || path[1] == '/')) {
        const char* home = getenv("HOME");
        if (home && *home) {
            expanded = home;
            expanded += path.substr(1);
            path = expanded;
        }
    }
    if (path.empty())
        return "";

    bool absolute = path.front() == '/';
    std::vector<std::string_view> components;
    size_t position = 0;
    while (position <= path.size()) {
        size_t slash = path.find('/', position);
        if (slash == std::string_view::npos)
            slash = path.size();
        std::string_view component = path.substr(position, slash - position);
        position = slash + 1;
        if (component.empty() || component == ".")
            continue;
        if (component == "..") {
            if (!components.empty() && components.back() != "..")
                components.pop_back();
            else if (!absolute)
                components.push_back(component);
            continue;
        }
        components.push_back(component);
    }

    std::string result = absolute ? "/" : "";
    for (size_t i = 0; i < components.size(); ++i) {
        if (i)
            result += '/';
        result += components[i];
    }
    // A relative path that resolved to nothing is the current directory.
    if (result.empty())
        return ".";
    return result;
}

} // namespace tessel
