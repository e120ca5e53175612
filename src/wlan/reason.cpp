#include "wlan/reason.h"

#include "tools/packed_texts.h"

#include <algorithm>
#include <array>
#include <functional>
#include <iterator>
#include <string_view>

namespace {

struct sta_reason {
    int code;
    const char *name;
};

// The driver's own spellings, letter for letter. The program has them packed.
// clang-format off
constexpr sta_reason sta_reasons[] = {
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
// clang-format on

static_assert(std::ranges::adjacent_find(sta_reasons, std::ranges::greater_equal{}, &sta_reason::code) ==
                  std::end(sta_reasons),
              "the look-up needs ascending codes, each once");

constexpr auto codes = [] {
    std::array<std::uint16_t, std::size(sta_reasons)> all = {};
    std::ranges::transform(sta_reasons, all.begin(),
                           [](const sta_reason &one) { return static_cast<std::uint16_t>(one.code); });
    return all;
}();
constexpr auto names = pack_texts<sta_reasons, &sta_reason::name>();

constexpr const char *reason_name(int code) {
    const auto *const at = std::ranges::lower_bound(codes, code);
    return at != codes.end() && *at == code ? names[static_cast<std::size_t>(at - codes.begin())]
                                            : "OW_STA_SUCCESS";
}
static_assert(std::string_view{reason_name(112)} == "OW_STA_DUPLICATE_AUTH");
static_assert(std::string_view{reason_name(113)} == "OW_STA_SUCCESS", "a gap is not an error");

} // namespace

const char *sta_off_reason_name(int code) { return reason_name(code); }
