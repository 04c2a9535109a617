/* Diagnostic channel: formatted messages to the modem vendor's log. */
#ifndef DIAG_CHANNEL_H
#define DIAG_CHANNEL_H

#ifdef __cplusplus
extern "C" {
#endif

typedef struct {
    unsigned int line, subsystem, mask;
    const char *format, *file;
} diag_message;

int diag_open(int options);
void diag_close(void);
void diag_emit(const diag_message*, const char* arg1, const char* arg2);

#ifdef __cplusplus
}
#endif

#endif /* DIAG_CHANNEL_H */
