/* ZAP client library: synchronous requests to, and indications from, the modem's services.
 *
 * Every result is 0 for success. A notifier is a client handle too; both are given back with
 * zap_client_release, which does not return while a callback of that handle runs on another thread.
 * Callbacks come on threads of the library's own. */
#ifndef ZAP_CLIENT_H
#define ZAP_CLIENT_H

#ifdef __cplusplus
extern "C" {
#endif

typedef struct zap_client* zap_client_handle;
typedef const struct zap_service* zap_service_object;

typedef struct {
    unsigned int words[16];
} zap_service_info;

typedef struct {
    unsigned char bytes[64];
} zap_os_params;

typedef enum { ZAP_SERVICE_UP = 0, ZAP_SERVICE_DOWN = 1 } zap_service_event;

typedef enum {
    ZAP_MESSAGE_REQUEST = 0,
    ZAP_MESSAGE_RESPONSE = 1,
    ZAP_MESSAGE_INDICATION = 2
} zap_message_kind;

typedef void (*zap_notify_cb)(zap_client_handle, zap_service_object, zap_service_event, void* user);
typedef void (*zap_ind_cb)(zap_client_handle, unsigned int msg_id, unsigned char* buf,
                           unsigned int len, void* user);
typedef void (*zap_error_cb)(zap_client_handle, int error, void* user);

int zap_client_notifier_init(zap_service_object, zap_os_params*, zap_client_handle* notifier);

/* When the service is up already, the callback may run before this returns. */
int zap_client_register_notify_cb(zap_client_handle notifier, zap_notify_cb, void* user);

int zap_client_get_any_service(zap_service_object, zap_service_info*);

int zap_client_init(zap_service_info*, zap_service_object, zap_ind_cb, void* user, zap_os_params*,
                    zap_client_handle* client);

int zap_client_register_error_cb(zap_client_handle, zap_error_cb, void* user);

int zap_client_send_msg_sync(zap_client_handle, unsigned int msg_id, void* req,
                             unsigned int req_len, void* resp, unsigned int resp_len,
                             unsigned int timeout_ms);

int zap_client_message_decode(zap_client_handle, zap_message_kind, unsigned int msg_id,
                              const void* buf, unsigned int len, void* out, unsigned int out_len);

int zap_client_release(zap_client_handle);

#ifdef __cplusplus
}
#endif

#endif /* ZAP_CLIENT_H */
