#pragma once

#include <string>

namespace tessel {

// Something the server asks a running application to do.
class ProcessAction {
public:
    virtual ~ProcessAction();
    virtual std::string description() const = 0;
};

} // namespace tessel
