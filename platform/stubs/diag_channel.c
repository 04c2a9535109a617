/* Linked against, never run: a device's own diagnostic library takes its place. */
#include <diag_channel.h>

int diag_open(int options) {
    (void)options;
    return -1;
}

void diag_close(void) {}

void diag_emit(const diag_message* message, const char* arg1, const char* arg2) {
    (void)message, (void)arg1, (void)arg2;
}
