#define _POSIX_C_SOURCE 200809L
/* An application of the client library in C: builds a notification and asks
   a bus that is not there, which must answer with the NoBus error. */
#include <tessel/TesselServices_c.h>

#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

static atomic_int reported = -1;

static void onError(void* context, TesselServicesErrorCode code, const char* operation, const char* message)
{
    (void)context;
    (void)operation;
    (void)message;
    atomic_store(&reported, (int)code);
}

int main(int argc, char** argv)
{
    TesselServicesLocalNotification* notification = TesselServicesLocalNotificationCreate();
    TesselServicesLocalNotificationSetText(notification, TesselServicesFieldAlertBody, "Hello from C");
    uint8_t* record = NULL;
    size_t length = 0;
    if (!TesselServicesLocalNotificationCopyArchive(notification, &record, &length))
        return 1;
    TesselServicesLocalNotificationDestroy(notification);

    TesselServicesScheduler* client
        = TesselServicesSchedulerCreate(argc > 1 ? argv[1] : NULL, NULL, NULL, onError, NULL, 1000);
    const uint8_t* records[] = { record };
    TesselServicesSchedulerAddScheduledLocalNotifications(
        client, 1, records, &length, "com.example.c", NULL, NULL);
    TesselServicesFree(record);
    struct timespec pause = { 0, 10 * 1000 * 1000 };
    for (int attempt = 0; attempt < 500 && atomic_load(&reported) < 0; ++attempt)
        nanosleep(&pause, NULL);
    TesselServicesSchedulerDestroy(client);
    if (atomic_load(&reported) != TesselServicesErrorNoBus) {
        fprintf(stderr, "expected the NoBus error, got %d\n", atomic_load(&reported));
        return 1;
    }
    printf("%s answered NoBus without a bus\n", TesselServicesSchedulerServiceName);
    return 0;
}
