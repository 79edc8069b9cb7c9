// The daemon grows with the services; for now it reports the library version.
#include <tessel/Tessel.h>

#include <cstdio>

int main()
{
    std::printf("%s", reinterpret_cast<const char*>(TesselVersionString));
    return 0;
}
