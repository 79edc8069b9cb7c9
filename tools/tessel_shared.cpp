// The shared library's own translation unit: everything it exports comes from
// the core archive, linked in whole.
#include <tessel/Tessel.h>
