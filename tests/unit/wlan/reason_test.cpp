#include "wlan/reason.h"

#include <algorithm>
#include <climits>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace {

// The driver's names, letter for letter.
const std::vector<std::pair<int, std::string>> names = {
    {102, "OW_STA_AUTHE_FAILED"},
    {103, "OW_STA_AUTH_FAIL"},
    {104, "OW_STA_AUTH_FAIL_IE_TOO_LONG"},
    {105, "OW_STA_AUTH_FAIL_NO_CHALLENGE"},
    {106, "OW_STA_AUTH_FAIL_AP_DOWN"},
    {107, "OW_STA_AUTH_FAIL_VAP_FORCE_PAUSE"},
    {108, "OW_STA_AUTH_FAIL_NULL_NODE"},
    {109, "OW_STA_AUTHE_FAILED_FIRST"},
    {110, "OW_STA_AUTHE_FAILED_SECOND"},
    {111, "OW_STA_RESP_LOW_RSSI"},
    {112, "OW_STA_DUPLICATE_AUTH"},
    {204, "OW_STA_ASSO_FAILED"},
    {205, "OW_STA_REASSO_FAILED"},
    {206, "OW_STA_MLME_ASSO_AP_DOWN"},
    {207, "OW_STA_MLME_SETUP_ASSOCRESP_FAIL"},
    {208, "OW_STA_ASSO_WRONG_BSSID"},
    {209, "OW_STA_BAD_PKT_LEN"},
    {210, "OW_STA_ASSO_NOT_AUTHED"},
    {211, "OW_STA_ASSO_BAD_WPA_IE"},
    {212, "OW_STA_UNASSO_STATION_DATA"},
    {213, "OW_STA_ASSOC_LOW_RSSI"},
    {214, "OW_STA_REACH_LIMIT"},
    {215, "OW_STA_MLME_ASSO_BANDSEL"},
    {216, "OW_STA_RATESET_MISMATCH"},
    {217, "OW_STA_WAPI_DECRP_ERROR"},
    {218, "OW_STA_WEP_PRIVACY_OFF"},
    {219, "OW_STA_DATA_DECRY_ERROR"},
    {220, "OW_STA_WEP_NOT_PERMIT"},
    {221, "OW_STA_MGMT_DECRY_ERROR"},
    {222, "OW_STA_TKIP_ENABLE"},
    {223, "OW_STA_WPA_PRARSE_ERROR"},
    {224, "OW_STA_CAP_MISMATCH"},
    {225, "OW_STA_SLOTTIME_MISMATCH"},
    {226, "OW_STA_CHANWIDTH_MISMATCH"},
    {227, "OW_STA_NOT_11N"},
    {228, "OW_STA_NULL_ASSO_ID"},
    {229, "OW_STA_ASSO_WRONG_VAP_MODE_STATE"},
    {230, "OW_STA_ASSO_NOT_WAPI"},
    {231, "OW_STA_ASSO_NO_HT"},
    {232, "OW_STA_ASRESP_WRONG_VAP_MODE_STATE"},
    {300, "OW_STA_TIMEOUT"},
    {301, "OW_STA_RSSI_TOO_LOW"},
    {302, "OW_STA_UNKNOWN_STATION_DATA"},
    {303, "OW_STA_VAP_CHANGE_DEAUTH"},
    {304, "OW_STA_VAP_CHANGE_DEASSO"},
    {305, "OW_STA_PMF_DEAUTH"},
    {306, "OW_STA_PMF_DISASSO"},
    {307, "OW_STA_DEAUTH_RECV"},
    {308, "OW_STA_DISASSO_RECV"},
    {309, "OW_STA_DEAUTH"},
    {310, "OW_STA_DEASSO"},
    {311, "OW_STA_COUNTER_DEAUTH_RECV"},
    {312, "OW_STA_COUNTER_DISASSO_RECV"},
    {313, "OW_STA_MLME_DISASSOC_STATUS"},
};

TEST(reason, each_code_has_the_driver_s_name_and_every_gap_means_success) {
    ASSERT_EQ(names.size(), 54U);
    for (int code = -1000; code <= 1000; ++code) {
        const auto known =
            std::find_if(names.begin(), names.end(), [code](const auto &one) { return one.first == code; });
        EXPECT_EQ(sta_off_reason_name(code), known != names.end() ? known->second : "OW_STA_SUCCESS") << code;
    }
}

TEST(reason, extreme_codes_mean_success) {
    for (const int code : {INT_MIN, INT_MAX, 0}) EXPECT_STREQ(sta_off_reason_name(code), "OW_STA_SUCCESS");
}

} // namespace
