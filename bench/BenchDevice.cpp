#include "BenchDevice.h"

namespace tessel {

SimulatedDevice& benchDevice()
{
    static SimulatedDevice shared;
    return shared;
}

} // namespace tessel
