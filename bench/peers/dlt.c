// SPDX-License-Identifier: Apache-2.0
//
// dlt EVENTS: logs the stream to dlt-daemon through its library.
#include "stream.h"

#include <dlt/dlt.h>

DLT_DECLARE_CONTEXT(context)

int main(int argc, char *argv[])
{
    int size = 0, used = 0;
    alarm(patience);
    DLT_REGISTER_APP("EVNT", "events");
    DLT_REGISTER_CONTEXT(context, "EVNT", "events");
    while (dlt_get_log_state() < 0) { // the daemon has not answered
        usleep(100);
    }
    for (int n = 0; n < atoi(argv[argc - 1]); ++n) {
        const struct Event event = makeEvent(n);
        DLT_LOG(context, DLT_LOG_WARN, DLT_INT32(eventId), DLT_STRING("/power/supply"),
                DLT_BOOL(event.enabled), DLT_INT32(event.load), DLT_FLOAT64(event.level),
                DLT_STRING(event.unit.text));
        // What the pipe has no room for, the library keeps, but not without limit.
        while (dlt_user_check_buffer(&size, &used) >= 0 && used > 0) {
            usleep(100);
            dlt_user_log_resend_buffer();
        }
    }
    DLT_UNREGISTER_CONTEXT(context);
    DLT_UNREGISTER_APP();
    return 0;
}
