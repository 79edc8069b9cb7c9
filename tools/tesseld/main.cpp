// tesseld: hosts the notification service on this machine's bus.
#include "Daemon.h"
#include "DaemonOptions.h"

#include <cstdio>

int main(int argc, char** argv)
{
    std::string error;
    auto options = tessel::DaemonOptions::parse(argc, argv, error);
    if (!options) {
        std::fprintf(stderr, "tesseld: %s\nTry 'tesseld --help'.\n", error.c_str());
        return 2;
    }
    if (options->action == tessel::DaemonOptions::Action::Help) {
        std::fputs(tessel::DaemonOptions::helpText(), stdout);
        return 0;
    }
    if (options->action == tessel::DaemonOptions::Action::Version) {
        std::printf("tesseld 1.0\n");
        return 0;
    }
    return tessel::Daemon(*options).run("/proc/self/exe");
}
