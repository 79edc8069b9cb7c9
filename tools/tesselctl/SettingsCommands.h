#pragma once

#include "tesselctl/Invocation.h"

namespace tessel::ctl {

// What an application registered (through the registrar client, as the
// application would) and the user's settings for it (through the control
// service, as the settings would).
class SettingsCommands {
public:
    static void show(const Invocation& invocation);
    static void allow(const Invocation& invocation);
    static void deny(const Invocation& invocation);
    static void types(const Invocation& invocation);
    static void set(const Invocation& invocation);
};

} // namespace tessel::ctl
