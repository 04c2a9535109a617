/* Linked against, never run: a device's own ZAP client library takes its place. */
#include <zap_client.h>

int zap_client_notifier_init(zap_service_object service, zap_os_params* params,
                             zap_client_handle* notifier) {
    (void)service, (void)params, (void)notifier;
    return -1;
}

int zap_client_register_notify_cb(zap_client_handle notifier, zap_notify_cb callback, void* user) {
    (void)notifier, (void)callback, (void)user;
    return -1;
}

int zap_client_get_any_service(zap_service_object service, zap_service_info* info) {
    (void)service, (void)info;
    return -1;
}

int zap_client_init(zap_service_info* info, zap_service_object service, zap_ind_cb callback,
                    void* user, zap_os_params* params, zap_client_handle* client) {
    (void)info, (void)service, (void)callback, (void)user, (void)params, (void)client;
    return -1;
}

int zap_client_register_error_cb(zap_client_handle client, zap_error_cb callback, void* user) {
    (void)client, (void)callback, (void)user;
    return -1;
}

int zap_client_send_msg_sync(zap_client_handle client, unsigned int msg_id, void* req,
                             unsigned int req_len, void* resp, unsigned int resp_len,
                             unsigned int timeout_ms) {
    (void)client, (void)msg_id, (void)req, (void)req_len, (void)resp, (void)resp_len;
    (void)timeout_ms;
    return -1;
}

int zap_client_message_decode(zap_client_handle client, zap_message_kind kind, unsigned int msg_id,
                              const void* buf, unsigned int len, void* out, unsigned int out_len) {
    (void)client, (void)kind, (void)msg_id, (void)buf, (void)len, (void)out, (void)out_len;
    return -1;
}

int zap_client_release(zap_client_handle client) {
    (void)client;
    return -1;
}
