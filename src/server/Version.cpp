#include <tessel/Tessel.h>

extern "C" {
const double TesselVersionNumber = 1.0;
const unsigned char TesselVersionString[] = "@(#)PROGRAM:Tessel  PROJECT:Tessel-1\n";
}
