/* Linked against, never run: a device's own WDS library takes its place. */
#include <wds_service_v01.h>

zap_service_object wds_get_service_object_v01(int major, int minor, int tool) {
    (void)major, (void)minor, (void)tool;
    return 0;
}
