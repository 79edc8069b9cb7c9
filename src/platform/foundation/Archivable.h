#pragma once

#include <string>

namespace tessel {

class KeyedArchiver;

// An object that a KeyedArchive can hold. Each concrete class registers its
// archive name and a decoding factory with KeyedArchive.
class Archivable {
public:
    virtual ~Archivable() = default;

    // The name under which the class is archived.
    virtual std::string className() const = 0;
    virtual void encodeWithCoder(KeyedArchiver& coder) const = 0;

    virtual std::string description() const;
    // Identity unless a class knows better.
    virtual bool isEqual(const Archivable& other) const { return this == &other; }
};

} // namespace tessel
