#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace tessel {

class ApplicationWorkspace;

// Starts an installed application in the background, for the work a push
// message asks of it: through its org.freedesktop.Application interface when
// it is D-Bus activatable, else by running its bundle's executable. Each wake
// runs on a thread of its own, so a slow application holds up nobody.
class LinuxApplicationLauncher {
public:
    using Completion = std::function<void()>;

    // busAddress empty for the session bus. A woken process counts as done
    // when it exits or after workLimit, whichever comes first.
    LinuxApplicationLauncher(std::shared_ptr<ApplicationWorkspace> workspace, std::string busAddress,
        std::chrono::milliseconds workLimit = std::chrono::seconds(30));

    // completion (if any) runs once, on the wake's thread, also when the
    // application cannot be started.
    void wake(const std::string& bundleIdentifier, Completion completion);

    // "/org/example/Mail" for "org.example.Mail", as the interface's object path.
    static std::string objectPathForApplicationId(const std::string& applicationId);

private:
    void activateOnBus(const std::string& applicationId) const;
    void runExecutable(const std::string& bundleIdentifier, const std::string& executable) const;

    const std::shared_ptr<ApplicationWorkspace> _workspace;
    const std::string _busAddress;
    const std::chrono::milliseconds _workLimit;
};

} // namespace tessel
