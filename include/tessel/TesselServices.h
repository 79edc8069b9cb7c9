#ifndef TESSEL_TESSELSERVICES_H
#define TESSEL_TESSELSERVICES_H

// The client library applications link to reach the notification server:
// the registrar and scheduler clients and the record builders. Link with
// `pkg-config --cflags --libs tessel-services`; docs/ipc.md describes the
// services. The C interface is TesselServices_c.h.

#include <tessel/TesselServices_c.h>
#include <tessel/services/ClientOptions.h>
#include <tessel/services/KTSNotificationRegistrarClient.h>
#include <tessel/services/KTSNotificationSchedulerClient.h>
#include <tessel/services/Records.h>

#endif
