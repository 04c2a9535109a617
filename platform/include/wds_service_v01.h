/* WDS, the modem's Wireless Data Service: its service object, message ids and message structures.
 *
 * Plain C, little-endian, naturally aligned. An optional field follows its one-byte valid flag.
 * Reserved bytes belong to fields that nobody here uses. */
#ifndef WDS_SERVICE_V01_H
#define WDS_SERVICE_V01_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#include "zap_client.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Null when that version is not served. */
zap_service_object wds_get_service_object_v01(int major, int minor, int tool);

#define WDS_SERVICE_MAJOR_V01 1
#define WDS_SERVICE_MINOR_V01 241
#define WDS_SERVICE_TOOL_V01 6

#define ZAP_WDS_INDICATION_REGISTER_REQ_V01 0x0003u
#define ZAP_WDS_CREATE_PROFILE_REQ_V01 0x0027u
#define ZAP_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01 0x0028u
#define ZAP_WDS_DELETE_PROFILE_REQ_V01 0x0029u
#define ZAP_WDS_GET_PROFILE_LIST_REQ_V01 0x002Au
#define ZAP_WDS_GET_PROFILE_SETTINGS_REQ_V01 0x002Bu
#define ZAP_WDS_CONFIGURE_PROFILE_EVENT_LIST_REQ_V01 0x00A7u
#define ZAP_WDS_PROFILE_CHANGED_IND_V01 0x00A8u
#define ZAP_WDS_BIND_SUBSCRIPTION_REQ_V01 0x00AFu

#define WDS_PROFILE_NAME_SIZE_V01 51
#define WDS_APN_SIZE_V01 151
#define WDS_CREDENTIAL_SIZE_V01 128
#define WDS_PROFILE_LIST_MAX_V01 255

/* In C++ the underlying type is fixed: a modem may send any 32-bit value. */
#ifdef __cplusplus
#define WDS_ENUM_V01(name) enum name : uint32_t
#else
#define WDS_ENUM_V01(name) \
    typedef uint32_t name; \
    enum
#endif

WDS_ENUM_V01(wds_profile_type_enum_v01){
    WDS_PROFILE_TYPE_3GPP_V01 = 0,
    WDS_PROFILE_TYPE_3GPP2_V01 = 1,
    WDS_PROFILE_TYPE_ALL_V01 = 0xFF,
};

WDS_ENUM_V01(wds_profile_pdn_type_enum_v01){
    WDS_PROFILE_PDN_TYPE_IPV4_V01 = 0,
    WDS_PROFILE_PDN_TYPE_IPV6_V01 = 1,
    WDS_PROFILE_PDN_TYPE_IPV4V6_V01 = 2,
    WDS_PROFILE_PDN_TYPE_UNSPECIFIED_V01 = 3,
};

WDS_ENUM_V01(wds_pdp_type_enum_v01){
    WDS_PDP_TYPE_IPV4_V01 = 0,
    WDS_PDP_TYPE_PPP_V01 = 1,
    WDS_PDP_TYPE_IPV6_V01 = 2,
    WDS_PDP_TYPE_IPV4V6_V01 = 3,
};

WDS_ENUM_V01(wds_common_pdp_type_enum_v01){
    WDS_COMMON_PDP_TYPE_IPV4_V01 = 0,
    WDS_COMMON_PDP_TYPE_IPV6_V01 = 1,
    WDS_COMMON_PDP_TYPE_IPV4V6_V01 = 2,
    WDS_COMMON_PDP_TYPE_NOT_SET_V01 = 255,
};

WDS_ENUM_V01(wds_profile_auth_protocol_enum_v01){
    WDS_PROFILE_AUTH_PROTOCOL_NONE_V01 = 0,
    WDS_PROFILE_AUTH_PROTOCOL_PAP_V01 = 1,
    WDS_PROFILE_AUTH_PROTOCOL_CHAP_V01 = 2,
    WDS_PROFILE_AUTH_PROTOCOL_PAP_CHAP_V01 = 3,
};

WDS_ENUM_V01(wds_profile_event_enum_v01){
    WDS_PROFILE_EVENT_CREATE_V01 = 1,        WDS_PROFILE_EVENT_DELETE_V01 = 2,
    WDS_PROFILE_EVENT_MODIFY_V01 = 3,        WDS_PROFILE_EVENT_SUBSCRIPTION_CHANGE_V01 = 4,
    WDS_PROFILE_EVENT_PROFILE_READY_V01 = 5,
};

/* First in every response. */
typedef struct {
    uint32_t result; /* 0: success */
    uint32_t error;
} zap_response_type_v01;

typedef struct {
    wds_profile_type_enum_v01 profile_type;
    uint8_t profile_index;
} wds_profile_identifier_type_v01;

/* ---- Registrations ---- */

typedef struct {
    uint32_t subscription;
} wds_bind_subscription_req_msg_v01;

/* 398 bytes, no multiple of four: bytes only. */
typedef struct {
    uint8_t reserved_0[32];
    uint8_t report_profile_changes_valid;
    uint8_t report_profile_changes;
    uint8_t reserved_34[364];
} wds_indication_register_req_msg_v01;

typedef struct {
    uint8_t events_valid;
    uint32_t events_len;
    wds_profile_identifier_type_v01
        events[WDS_PROFILE_LIST_MAX_V01]; /* 0xFF: any type, any index */
    uint8_t report_own_changes_valid;
    uint8_t report_own_changes;
} wds_configure_profile_event_list_req_msg_v01;

/* The answer to every request that returns nothing but its result. */
typedef struct {
    zap_response_type_v01 resp;
} wds_result_resp_msg_v01;

/* ---- Profiles ---- */

typedef struct {
    wds_profile_type_enum_v01 profile_type;
    uint8_t profile_name_valid;
    char profile_name[WDS_PROFILE_NAME_SIZE_V01];
    uint8_t pdp_type_valid;
    wds_pdp_type_enum_v01 pdp_type;
    uint8_t reserved_64[16];
    uint8_t apn_name_valid;
    char apn_name[WDS_APN_SIZE_V01];
    uint8_t reserved_232[168];
    uint8_t username_valid;
    char username[WDS_CREDENTIAL_SIZE_V01];
    uint8_t password_valid;
    char password[WDS_CREDENTIAL_SIZE_V01];
    uint8_t authentication_preference_valid;
    uint8_t authentication_preference; /* bit 0: PAP, bit 1: CHAP */
    uint8_t reserved_660[320];
    uint8_t apn_disabled_valid;
    uint8_t apn_disabled;
    uint8_t reserved_982[6];
    uint8_t apn_class_valid;
    uint8_t apn_class;
    uint8_t reserved_990[10];
    uint8_t supports_emergency_calls_valid;
    uint8_t supports_emergency_calls;
    uint8_t reserved_1002[14];
    uint8_t max_pdn_conn_per_block_valid;
    uint16_t max_pdn_conn_per_block;
    uint8_t max_pdn_conn_timer_valid;
    uint16_t max_pdn_conn_timer;
    uint8_t pdn_req_wait_interval_valid;
    uint16_t pdn_req_wait_interval;
    uint8_t reserved_1028[14];
    uint8_t lte_roaming_pdp_type_valid;
    wds_common_pdp_type_enum_v01 lte_roaming_pdp_type;
    uint8_t umts_roaming_pdp_type_valid;
    wds_common_pdp_type_enum_v01 umts_roaming_pdp_type;
    uint8_t reserved_1056[48];
    uint8_t override_home_pdp_type_valid;
    wds_common_pdp_type_enum_v01 override_home_pdp_type;
    uint8_t reserved_1112[1064];
    uint8_t persistent_valid;
    uint8_t persistent;
    uint8_t reserved_2178[38];
    uint8_t auth_protocol_3gpp2_valid;
    wds_profile_auth_protocol_enum_v01 auth_protocol_3gpp2;
    uint8_t user_id_3gpp2_valid;
    char user_id_3gpp2[WDS_CREDENTIAL_SIZE_V01];
    uint8_t password_3gpp2_valid;
    char password_3gpp2[WDS_CREDENTIAL_SIZE_V01];
    uint8_t reserved_2482[24];
    uint8_t apn_string_3gpp2_valid;
    char apn_string_3gpp2[WDS_APN_SIZE_V01];
    uint8_t pdn_type_3gpp2_valid;
    wds_profile_pdn_type_enum_v01 pdn_type_3gpp2;
    uint8_t reserved_2664[64];
    uint8_t apn_class_3gpp2_valid;
    uint8_t apn_class_3gpp2;
    uint8_t pdn_level_auth_protocol_3gpp2_valid;
    wds_profile_auth_protocol_enum_v01 pdn_level_auth_protocol_3gpp2;
    uint8_t pdn_level_user_id_3gpp2_valid;
    char pdn_level_user_id_3gpp2[WDS_CREDENTIAL_SIZE_V01];
    uint8_t pdn_level_password_3gpp2_valid;
    char pdn_level_password_3gpp2[WDS_CREDENTIAL_SIZE_V01];
    uint8_t reserved_2994[234];
    uint8_t apn_type_mask_valid;
    uint64_t apn_type_mask;
    uint8_t clat_enabled_valid;
    uint8_t clat_enabled;
    uint8_t reserved_3242[6];
} wds_create_profile_req_msg_v01;

typedef struct {
    wds_profile_identifier_type_v01 profile;
    uint8_t profile_name_valid;
    char profile_name[WDS_PROFILE_NAME_SIZE_V01];
    uint8_t pdp_type_valid;
    wds_pdp_type_enum_v01 pdp_type;
    uint8_t reserved_68[16];
    uint8_t apn_name_valid;
    char apn_name[WDS_APN_SIZE_V01];
    uint8_t reserved_236[168];
    uint8_t username_valid;
    char username[WDS_CREDENTIAL_SIZE_V01];
    uint8_t password_valid;
    char password[WDS_CREDENTIAL_SIZE_V01];
    uint8_t authentication_preference_valid;
    uint8_t authentication_preference; /* bit 0: PAP, bit 1: CHAP */
    uint8_t reserved_664[320];
    uint8_t apn_disabled_valid;
    uint8_t apn_disabled;
    uint8_t reserved_986[6];
    uint8_t apn_class_valid;
    uint8_t apn_class;
    uint8_t reserved_994[14];
    uint8_t supports_emergency_calls_valid;
    uint8_t supports_emergency_calls;
    uint8_t reserved_1010[14];
    uint8_t max_pdn_conn_per_block_valid;
    uint16_t max_pdn_conn_per_block;
    uint8_t max_pdn_conn_timer_valid;
    uint16_t max_pdn_conn_timer;
    uint8_t pdn_req_wait_interval_valid;
    uint16_t pdn_req_wait_interval;
    uint8_t reserved_1036[14];
    uint8_t lte_roaming_pdp_type_valid;
    wds_common_pdp_type_enum_v01 lte_roaming_pdp_type;
    uint8_t umts_roaming_pdp_type_valid;
    wds_common_pdp_type_enum_v01 umts_roaming_pdp_type;
    uint8_t reserved_1064[48];
    uint8_t override_home_pdp_type_valid;
    wds_common_pdp_type_enum_v01 override_home_pdp_type;
    uint8_t reserved_1120[1100];
    uint8_t auth_protocol_3gpp2_valid;
    wds_profile_auth_protocol_enum_v01 auth_protocol_3gpp2;
    uint8_t user_id_3gpp2_valid;
    char user_id_3gpp2[WDS_CREDENTIAL_SIZE_V01];
    uint8_t password_3gpp2_valid;
    char password_3gpp2[WDS_CREDENTIAL_SIZE_V01];
    uint8_t reserved_2486[24];
    uint8_t apn_string_3gpp2_valid;
    char apn_string_3gpp2[WDS_APN_SIZE_V01];
    uint8_t pdn_type_3gpp2_valid;
    wds_profile_pdn_type_enum_v01 pdn_type_3gpp2;
    uint8_t reserved_2668[64];
    uint8_t apn_class_3gpp2_valid;
    uint8_t apn_class_3gpp2;
    uint8_t pdn_level_auth_protocol_3gpp2_valid;
    wds_profile_auth_protocol_enum_v01 pdn_level_auth_protocol_3gpp2;
    uint8_t pdn_level_user_id_3gpp2_valid;
    char pdn_level_user_id_3gpp2[WDS_CREDENTIAL_SIZE_V01];
    uint8_t pdn_level_password_3gpp2_valid;
    char pdn_level_password_3gpp2[WDS_CREDENTIAL_SIZE_V01];
    uint8_t reserved_2998[234];
    uint8_t apn_type_mask_valid;
    uint64_t apn_type_mask;
    uint8_t clat_enabled_valid;
    uint8_t clat_enabled;
    uint8_t reserved_3250[6];
} wds_modify_profile_settings_req_msg_v01;

typedef struct {
    zap_response_type_v01 resp;
    uint8_t profile_name_valid;
    char profile_name[WDS_PROFILE_NAME_SIZE_V01];
    uint8_t pdp_type_valid;
    wds_pdp_type_enum_v01 pdp_type;
    uint8_t reserved_68[16];
    uint8_t apn_name_valid;
    char apn_name[WDS_APN_SIZE_V01];
    uint8_t reserved_236[168];
    uint8_t username_valid;
    char username[WDS_CREDENTIAL_SIZE_V01];
    uint8_t password_valid;
    char password[WDS_CREDENTIAL_SIZE_V01];
    uint8_t authentication_preference_valid;
    uint8_t authentication_preference; /* bit 0: PAP, bit 1: CHAP */
    uint8_t reserved_664[320];
    uint8_t apn_disabled_valid;
    uint8_t apn_disabled;
    uint8_t reserved_986[6];
    uint8_t apn_class_valid;
    uint8_t apn_class;
    uint8_t reserved_994[14];
    uint8_t supports_emergency_calls_valid;
    uint8_t supports_emergency_calls;
    uint8_t reserved_1010[14];
    uint8_t max_pdn_conn_per_block_valid;
    uint16_t max_pdn_conn_per_block;
    uint8_t max_pdn_conn_timer_valid;
    uint16_t max_pdn_conn_timer;
    uint8_t pdn_req_wait_interval_valid;
    uint16_t pdn_req_wait_interval;
    uint8_t reserved_1036[14];
    uint8_t lte_roaming_pdp_type_valid;
    wds_common_pdp_type_enum_v01 lte_roaming_pdp_type;
    uint8_t umts_roaming_pdp_type_valid;
    wds_common_pdp_type_enum_v01 umts_roaming_pdp_type;
    uint8_t reserved_1064[48];
    uint8_t override_home_pdp_type_valid;
    wds_common_pdp_type_enum_v01 override_home_pdp_type;
    uint8_t reserved_1120[1064];
    uint8_t persistent_valid;
    uint8_t persistent;
    uint8_t reserved_2186[38];
    uint8_t auth_protocol_3gpp2_valid;
    wds_profile_auth_protocol_enum_v01 auth_protocol_3gpp2;
    uint8_t user_id_3gpp2_valid;
    char user_id_3gpp2[WDS_CREDENTIAL_SIZE_V01];
    uint8_t reserved_2361[153];
    uint8_t apn_string_3gpp2_valid;
    char apn_string_3gpp2[WDS_APN_SIZE_V01];
    uint8_t pdn_type_3gpp2_valid;
    wds_profile_pdn_type_enum_v01 pdn_type_3gpp2;
    uint8_t reserved_2672[64];
    uint8_t apn_class_3gpp2_valid;
    uint8_t apn_class_3gpp2;
    uint8_t reserved_2738[498];
    uint8_t apn_type_mask_valid;
    uint64_t apn_type_mask;
    uint8_t clat_enabled_valid;
    uint8_t clat_enabled;
    uint8_t reserved_3250[14];
} wds_get_profile_settings_resp_msg_v01;

typedef struct {
    zap_response_type_v01 resp;
    wds_profile_identifier_type_v01 profile;
} wds_create_profile_resp_msg_v01;

typedef struct {
    wds_profile_identifier_type_v01 profile;
} wds_delete_profile_req_msg_v01;

typedef struct {
    wds_profile_identifier_type_v01 profile;
} wds_get_profile_settings_req_msg_v01;

typedef struct {
    uint8_t profile_type_valid;
    wds_profile_type_enum_v01 profile_type;
} wds_get_profile_list_req_msg_v01;

typedef struct {
    wds_profile_type_enum_v01 profile_type;
    uint8_t profile_index;
    char profile_name[WDS_PROFILE_NAME_SIZE_V01];
} wds_profile_info_type_v01;

typedef struct {
    zap_response_type_v01 resp;
    uint32_t profile_list_len; /* as the modem sends it: may exceed the entries */
    wds_profile_info_type_v01 profile_list[WDS_PROFILE_LIST_MAX_V01];
} wds_get_profile_list_resp_msg_v01;

/* ---- Indication ---- */

typedef struct {
    wds_profile_type_enum_v01 profile_type;
    uint8_t profile_index;
    wds_profile_event_enum_v01 event;
} wds_profile_changed_ind_type_v01;

typedef struct {
    uint8_t profile_changed_valid;
    wds_profile_changed_ind_type_v01 profile_changed;
} wds_profile_changed_ind_msg_v01;

/* ---- Layout: what the modem puts on the wire ---- */

#define WDS_SIZE_V01(type, size) static_assert(sizeof(type) == (size), #type)
#define WDS_AT_V01(type, field, offset) static_assert(offsetof(type, field) == (offset), #field)
/* A valid flag at one offset, its value at the other. */
#define WDS_FIELD_V01(type, field, valid_offset, value_offset) \
    WDS_AT_V01(type, field##_valid, valid_offset);             \
    WDS_AT_V01(type, field, value_offset)

WDS_SIZE_V01(zap_response_type_v01, 8);
WDS_SIZE_V01(wds_profile_identifier_type_v01, 8);
WDS_SIZE_V01(wds_bind_subscription_req_msg_v01, 4);
WDS_SIZE_V01(wds_indication_register_req_msg_v01, 398);
WDS_SIZE_V01(wds_configure_profile_event_list_req_msg_v01, 2052);
WDS_SIZE_V01(wds_result_resp_msg_v01, 8);
WDS_SIZE_V01(wds_create_profile_req_msg_v01, 3248);
WDS_SIZE_V01(wds_modify_profile_settings_req_msg_v01, 3256);
WDS_SIZE_V01(wds_get_profile_settings_resp_msg_v01, 3264);
WDS_SIZE_V01(wds_create_profile_resp_msg_v01, 16);
WDS_SIZE_V01(wds_delete_profile_req_msg_v01, 8);
WDS_SIZE_V01(wds_get_profile_settings_req_msg_v01, 8);
WDS_SIZE_V01(wds_get_profile_list_req_msg_v01, 8);
WDS_SIZE_V01(wds_profile_info_type_v01, 56);
WDS_SIZE_V01(wds_get_profile_list_resp_msg_v01, 14292);
WDS_SIZE_V01(wds_profile_changed_ind_type_v01, 12);
WDS_SIZE_V01(wds_profile_changed_ind_msg_v01, 16);

WDS_AT_V01(zap_response_type_v01, error, 4);
WDS_AT_V01(wds_profile_identifier_type_v01, profile_index, 4);
WDS_AT_V01(wds_indication_register_req_msg_v01, report_profile_changes_valid, 32);
WDS_AT_V01(wds_indication_register_req_msg_v01, report_profile_changes, 33);
WDS_AT_V01(wds_configure_profile_event_list_req_msg_v01, events_len, 4);
WDS_AT_V01(wds_configure_profile_event_list_req_msg_v01, events, 8);
WDS_AT_V01(wds_configure_profile_event_list_req_msg_v01, report_own_changes_valid, 2048);
WDS_AT_V01(wds_configure_profile_event_list_req_msg_v01, report_own_changes, 2049);
WDS_AT_V01(wds_create_profile_resp_msg_v01, profile, 8);
WDS_AT_V01(wds_get_profile_list_req_msg_v01, profile_type, 4);
WDS_AT_V01(wds_get_profile_list_resp_msg_v01, profile_list_len, 8);
WDS_AT_V01(wds_get_profile_list_resp_msg_v01, profile_list, 12);
WDS_AT_V01(wds_profile_info_type_v01, profile_index, 4);
WDS_AT_V01(wds_profile_info_type_v01, profile_name, 5);
WDS_AT_V01(wds_profile_changed_ind_msg_v01, profile_changed, 4);
WDS_AT_V01(wds_profile_changed_ind_type_v01, profile_index, 4);
WDS_AT_V01(wds_profile_changed_ind_type_v01, event, 8);
WDS_AT_V01(wds_create_profile_req_msg_v01, profile_type, 0);
WDS_AT_V01(wds_modify_profile_settings_req_msg_v01, profile, 0);

WDS_FIELD_V01(wds_create_profile_req_msg_v01, profile_name, 4, 5);
WDS_FIELD_V01(wds_create_profile_req_msg_v01, pdp_type, 56, 60);
WDS_FIELD_V01(wds_create_profile_req_msg_v01, apn_name, 80, 81);
WDS_FIELD_V01(wds_create_profile_req_msg_v01, username, 400, 401);
WDS_FIELD_V01(wds_create_profile_req_msg_v01, password, 529, 530);
WDS_FIELD_V01(wds_create_profile_req_msg_v01, authentication_preference, 658, 659);
WDS_FIELD_V01(wds_create_profile_req_msg_v01, apn_disabled, 980, 981);
WDS_FIELD_V01(wds_create_profile_req_msg_v01, apn_class, 988, 989);
WDS_FIELD_V01(wds_create_profile_req_msg_v01, supports_emergency_calls, 1000, 1001);
WDS_FIELD_V01(wds_create_profile_req_msg_v01, max_pdn_conn_per_block, 1016, 1018);
WDS_FIELD_V01(wds_create_profile_req_msg_v01, max_pdn_conn_timer, 1020, 1022);
WDS_FIELD_V01(wds_create_profile_req_msg_v01, pdn_req_wait_interval, 1024, 1026);
WDS_FIELD_V01(wds_create_profile_req_msg_v01, lte_roaming_pdp_type, 1042, 1044);
WDS_FIELD_V01(wds_create_profile_req_msg_v01, umts_roaming_pdp_type, 1048, 1052);
WDS_FIELD_V01(wds_create_profile_req_msg_v01, override_home_pdp_type, 1104, 1108);
WDS_FIELD_V01(wds_create_profile_req_msg_v01, persistent, 2176, 2177);
WDS_FIELD_V01(wds_create_profile_req_msg_v01, auth_protocol_3gpp2, 2216, 2220);
WDS_FIELD_V01(wds_create_profile_req_msg_v01, user_id_3gpp2, 2224, 2225);
WDS_FIELD_V01(wds_create_profile_req_msg_v01, password_3gpp2, 2353, 2354);
WDS_FIELD_V01(wds_create_profile_req_msg_v01, apn_string_3gpp2, 2506, 2507);
WDS_FIELD_V01(wds_create_profile_req_msg_v01, pdn_type_3gpp2, 2658, 2660);
WDS_FIELD_V01(wds_create_profile_req_msg_v01, apn_class_3gpp2, 2728, 2729);
WDS_FIELD_V01(wds_create_profile_req_msg_v01, pdn_level_auth_protocol_3gpp2, 2730, 2732);
WDS_FIELD_V01(wds_create_profile_req_msg_v01, pdn_level_user_id_3gpp2, 2736, 2737);
WDS_FIELD_V01(wds_create_profile_req_msg_v01, pdn_level_password_3gpp2, 2865, 2866);
WDS_FIELD_V01(wds_create_profile_req_msg_v01, apn_type_mask, 3228, 3232);
WDS_FIELD_V01(wds_create_profile_req_msg_v01, clat_enabled, 3240, 3241);

WDS_FIELD_V01(wds_modify_profile_settings_req_msg_v01, profile_name, 8, 9);
WDS_FIELD_V01(wds_modify_profile_settings_req_msg_v01, pdp_type, 60, 64);
WDS_FIELD_V01(wds_modify_profile_settings_req_msg_v01, apn_name, 84, 85);
WDS_FIELD_V01(wds_modify_profile_settings_req_msg_v01, username, 404, 405);
WDS_FIELD_V01(wds_modify_profile_settings_req_msg_v01, password, 533, 534);
WDS_FIELD_V01(wds_modify_profile_settings_req_msg_v01, authentication_preference, 662, 663);
WDS_FIELD_V01(wds_modify_profile_settings_req_msg_v01, apn_disabled, 984, 985);
WDS_FIELD_V01(wds_modify_profile_settings_req_msg_v01, apn_class, 992, 993);
WDS_FIELD_V01(wds_modify_profile_settings_req_msg_v01, supports_emergency_calls, 1008, 1009);
WDS_FIELD_V01(wds_modify_profile_settings_req_msg_v01, max_pdn_conn_per_block, 1024, 1026);
WDS_FIELD_V01(wds_modify_profile_settings_req_msg_v01, max_pdn_conn_timer, 1028, 1030);
WDS_FIELD_V01(wds_modify_profile_settings_req_msg_v01, pdn_req_wait_interval, 1032, 1034);
WDS_FIELD_V01(wds_modify_profile_settings_req_msg_v01, lte_roaming_pdp_type, 1050, 1052);
WDS_FIELD_V01(wds_modify_profile_settings_req_msg_v01, umts_roaming_pdp_type, 1056, 1060);
WDS_FIELD_V01(wds_modify_profile_settings_req_msg_v01, override_home_pdp_type, 1112, 1116);
WDS_FIELD_V01(wds_modify_profile_settings_req_msg_v01, auth_protocol_3gpp2, 2220, 2224);
WDS_FIELD_V01(wds_modify_profile_settings_req_msg_v01, user_id_3gpp2, 2228, 2229);
WDS_FIELD_V01(wds_modify_profile_settings_req_msg_v01, password_3gpp2, 2357, 2358);
WDS_FIELD_V01(wds_modify_profile_settings_req_msg_v01, apn_string_3gpp2, 2510, 2511);
WDS_FIELD_V01(wds_modify_profile_settings_req_msg_v01, pdn_type_3gpp2, 2662, 2664);
WDS_FIELD_V01(wds_modify_profile_settings_req_msg_v01, apn_class_3gpp2, 2732, 2733);
WDS_FIELD_V01(wds_modify_profile_settings_req_msg_v01, pdn_level_auth_protocol_3gpp2, 2734, 2736);
WDS_FIELD_V01(wds_modify_profile_settings_req_msg_v01, pdn_level_user_id_3gpp2, 2740, 2741);
WDS_FIELD_V01(wds_modify_profile_settings_req_msg_v01, pdn_level_password_3gpp2, 2869, 2870);
WDS_FIELD_V01(wds_modify_profile_settings_req_msg_v01, apn_type_mask, 3232, 3240);
WDS_FIELD_V01(wds_modify_profile_settings_req_msg_v01, clat_enabled, 3248, 3249);

WDS_FIELD_V01(wds_get_profile_settings_resp_msg_v01, profile_name, 8, 9);
WDS_FIELD_V01(wds_get_profile_settings_resp_msg_v01, pdp_type, 60, 64);
WDS_FIELD_V01(wds_get_profile_settings_resp_msg_v01, apn_name, 84, 85);
WDS_FIELD_V01(wds_get_profile_settings_resp_msg_v01, username, 404, 405);
WDS_FIELD_V01(wds_get_profile_settings_resp_msg_v01, password, 533, 534);
WDS_FIELD_V01(wds_get_profile_settings_resp_msg_v01, authentication_preference, 662, 663);
WDS_FIELD_V01(wds_get_profile_settings_resp_msg_v01, apn_disabled, 984, 985);
WDS_FIELD_V01(wds_get_profile_settings_resp_msg_v01, apn_class, 992, 993);
WDS_FIELD_V01(wds_get_profile_settings_resp_msg_v01, supports_emergency_calls, 1008, 1009);
WDS_FIELD_V01(wds_get_profile_settings_resp_msg_v01, max_pdn_conn_per_block, 1024, 1026);
WDS_FIELD_V01(wds_get_profile_settings_resp_msg_v01, max_pdn_conn_timer, 1028, 1030);
WDS_FIELD_V01(wds_get_profile_settings_resp_msg_v01, pdn_req_wait_interval, 1032, 1034);
WDS_FIELD_V01(wds_get_profile_settings_resp_msg_v01, lte_roaming_pdp_type, 1050, 1052);
WDS_FIELD_V01(wds_get_profile_settings_resp_msg_v01, umts_roaming_pdp_type, 1056, 1060);
WDS_FIELD_V01(wds_get_profile_settings_resp_msg_v01, override_home_pdp_type, 1112, 1116);
WDS_FIELD_V01(wds_get_profile_settings_resp_msg_v01, persistent, 2184, 2185);
WDS_FIELD_V01(wds_get_profile_settings_resp_msg_v01, auth_protocol_3gpp2, 2224, 2228);
WDS_FIELD_V01(wds_get_profile_settings_resp_msg_v01, user_id_3gpp2, 2232, 2233);
WDS_FIELD_V01(wds_get_profile_settings_resp_msg_v01, apn_string_3gpp2, 2514, 2515);
WDS_FIELD_V01(wds_get_profile_settings_resp_msg_v01, pdn_type_3gpp2, 2666, 2668);
WDS_FIELD_V01(wds_get_profile_settings_resp_msg_v01, apn_class_3gpp2, 2736, 2737);
WDS_FIELD_V01(wds_get_profile_settings_resp_msg_v01, apn_type_mask, 3236, 3240);
WDS_FIELD_V01(wds_get_profile_settings_resp_msg_v01, clat_enabled, 3248, 3249);

#undef WDS_FIELD_V01
#undef WDS_AT_V01
#undef WDS_SIZE_V01
#undef WDS_ENUM_V01

#ifdef __cplusplus
}
#endif

#endif /* WDS_SERVICE_V01_H */
