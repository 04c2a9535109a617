// DirectModem: a client of the modem's data service without the library: its requests go straight
// to the modem, and its indications are counted.
#pragma once

#include <cstdlib>
#include <cstring>

#include "FilledModem.h"
#include "Tally.h"
#include "wds_service_v01.h"
#include "zap_client.h"

namespace zem {

// One at a time, as a Phone, and none beside one, which would hear of its changes.
class DirectModem {
  public:
    explicit DirectModem(const Stock& stock) {
        softmodem::SoftModem& modem = filledModem(stock);
        const auto service = wds_get_service_object_v01(
            WDS_SERVICE_MAJOR_V01, WDS_SERVICE_MINOR_V01, WDS_SERVICE_TOOL_V01);
        zap_service_info info{};
        if (zap_client_get_any_service(service, &info) != 0 ||
            zap_client_init(&info, service, count, &indications, &osParams, &client) != 0) {
            abort();
        }
        send<wds_result_resp_msg_v01>(ZAP_WDS_BIND_SUBSCRIPTION_REQ_V01,
                                      wds_bind_subscription_req_msg_v01{});
        wds_indication_register_req_msg_v01 registration{};
        registration.report_profile_changes_valid = registration.report_profile_changes = 1;
        send<wds_result_resp_msg_v01>(ZAP_WDS_INDICATION_REGISTER_REQ_V01, registration);
        wds_configure_profile_event_list_req_msg_v01 events{};
        events.events_valid = 1;
        events.events_len = 1;
        events.events[0] = {WDS_PROFILE_TYPE_ALL_V01, 0xFF};
        events.report_own_changes_valid = events.report_own_changes = 1;
        send<wds_result_resp_msg_v01>(ZAP_WDS_CONFIGURE_PROFILE_EVENT_LIST_REQ_V01, events);
        indications.await(1);  // that the profiles are ready
        modem.waitUntilIdle();
    }
    ~DirectModem() { zap_client_release(client); }
    DirectModem(const DirectModem&) = delete;
    DirectModem& operator=(const DirectModem&) = delete;

    // The same changes as a Phone's, by the same requests.

    wds_profile_identifier_type_v01 add() {
        wds_create_profile_req_msg_v01 request{};
        request.profile_type = WDS_PROFILE_TYPE_3GPP_V01;
        put(request.profile_name_valid, request.profile_name, "zem_profile");
        put(request.apn_name_valid, request.apn_name, kAddedName);
        request.persistent_valid = 1;
        const auto response =
            send<wds_create_profile_resp_msg_v01>(ZAP_WDS_CREATE_PROFILE_REQ_V01, request);
        indications.await(2);
        return response.profile;
    }

    void changeUserName(const wds_profile_identifier_type_v01& profile) {
        wds_modify_profile_settings_req_msg_v01 request{};
        request.profile = profile;
        put(request.username_valid, request.username, userNames.next());
        send<wds_result_resp_msg_v01>(ZAP_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01, request);
        indications.await(1);
    }

    void remove(const wds_profile_identifier_type_v01& profile) {
        send<wds_result_resp_msg_v01>(ZAP_WDS_DELETE_PROFILE_REQ_V01,
                                      wds_delete_profile_req_msg_v01{profile});
        indications.await(1);
    }

    // What a refresh asks. Returns how many profiles have an APN name.
    size_t readAll() {
        size_t read = 0;
        for (const auto type : {WDS_PROFILE_TYPE_3GPP_V01, WDS_PROFILE_TYPE_3GPP2_V01}) {
            const auto list = send<wds_get_profile_list_resp_msg_v01>(
                ZAP_WDS_GET_PROFILE_LIST_REQ_V01, wds_get_profile_list_req_msg_v01{1, type});
            for (uint32_t i = 0; i < list.profile_list_len; ++i) {
                const auto& entry = list.profile_list[i];
                const auto settings = send<wds_get_profile_settings_resp_msg_v01>(
                    ZAP_WDS_GET_PROFILE_SETTINGS_REQ_V01,
                    wds_get_profile_settings_req_msg_v01{
                        {entry.profile_type, entry.profile_index}});
                read += settings.apn_name_valid | settings.apn_string_3gpp2_valid;
            }
        }
        return read;
    }

  private:
    static void count(zap_client_handle, unsigned, unsigned char*, unsigned, void* user) {
        static_cast<Tally*>(user)->add();
    }

    template <size_t N>
    static void put(uint8_t& valid, char (&field)[N], const char* text) {
        valid = 1;
        strncpy(field, text, N - 1);
    }

    template <class Response, class Request>
    Response send(unsigned messageId, const Request& request) {
        Response response{};
        if (zap_client_send_msg_sync(client, messageId, const_cast<Request*>(&request),
                                     sizeof request, &response, sizeof response, 1000) != 0 ||
            response.resp.result != 0) {
            abort();
        }
        return response;
    }

    zap_os_params osParams{};
    zap_client_handle client = nullptr;
    Tally indications;
    UserNames userNames;
};

}  // namespace zem
