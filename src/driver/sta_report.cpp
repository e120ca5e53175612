#include "driver/sta_report.h"

#include "driver/report_image.h"
#include "protocol/driver_request.h"
#include "sta/sta_table.h"
#include "tools/sta_debug.h"
#include "tools/sta_memory.h"
#include "tools/sta_text.h"
#include "ubus/sta_ubus_notify.h"
#include "was/was.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace {

constexpr const char *client_path = "/tmp/sta_client_domain";
constexpr const char *server_path = "/tmp/sta_server_domain";
constexpr const char *ap_mac_file = "/proc/tk_sys/sys_mac";
constexpr std::size_t ap_mac_size = 20;

struct unix_address {
    sockaddr_un address{};
    socklen_t size; // of the path without its terminator: what the collector compares
    explicit unix_address(const char *path)
        : size(static_cast<socklen_t>(sizeof(address.sun_family) + std::strlen(path))) {
        address.sun_family = AF_UNIX;
        sta_put_text(address.sun_path, path);
    }
    const sockaddr *get() const { return reinterpret_cast<const sockaddr *>(&address); }
};

class descriptor {
public:
    explicit descriptor(int number) noexcept : fd(number) {}
    ~descriptor() {
        if (fd >= 0) close(fd);
    }
    descriptor(const descriptor &) = delete;
    descriptor &operator=(const descriptor &) = delete;
    int get() const noexcept { return fd; }

private:
    int fd;
};

} // namespace

int sta_domain_socket_send(const sta_info_t *sta) {
    STA_LOG("sta domain socket send.\n");
    if (!sta) {
        STA_LOG("sta is NULL.\n");
        return -1;
    }
    const descriptor report{socket(AF_UNIX, SOCK_STREAM, 0)};
    if (report.get() < 0) {
        STA_LOG("domain socket error.\n");
        return -1;
    }
    fcntl(report.get(), F_SETFD, FD_CLOEXEC);
    const unix_address client{client_path};
    unlink(client_path);
    if (bind(report.get(), client.get(), client.size) < 0) {
        STA_LOG("domain bind error.\n");
        return -1;
    }
    const unix_address server{server_path};
    if (connect(report.get(), server.get(), server.size) < 0) {
        STA_LOG("domain connect error.\n");
        return -1;
    }
    std::uint8_t image[station_report_size];
    station_report_encode(sta_report_of(*sta), image);
    (void)!write(report.get(), image, sizeof(image)); // the collector had its chance
    return 0;
}

void sta_sta_log_on(sta_info_t *sta) {
    STA_LOG("sta log on.\n");
    if (sta) sta->log_type = report_online;
    if (sta_domain_socket_send(sta) == -1) STA_LOG("sta_domain_socket_send error!!!\n");
    sta_ubus_log_info_notify(sta);
}

void sta_sta_log_off(sta_info_t *sta) {
    STA_LOG("sta log off.\n");
    if (sta) sta->log_type = report_offline;
    if (sta_domain_socket_send(sta) == -1) STA_LOG("sta_domain_socket_send error!!!\n");
    sta_ubus_log_info_notify(sta);
}

void sta_sta_roam_send_msg(const sta_info_t *sta) {
    STA_LOG("sta_sta_roam_send_msg is running!!!\n");
    sta_info_t *known = sta ? sta_sta_find_usr(sta->mac) : nullptr;
    if (!known) {
        STA_LOG("sta can't find\n");
        return;
    }
    STA_LOG("stamac = %s, sta_radio_id = %d, tempt_radio_id = %d\n", sta->mac, sta->radio_id,
            known->radio_id);
    if (known->radio_id == sta->radio_id) return;
    known->log_type = report_roamed;
    sta_sta_delete_sta_by_roam(known);
    if (sta_domain_socket_send(known) == -1) STA_LOG("sta_domain_socket_send error!!!\n");
}

void sta_sta_delete_sta_by_roam(const sta_info_t *sta) {
    if (!sta) return;
    auto *request = static_cast<std::uint8_t *>(sta_malloc(roam_delete_size));
    if (!request) {
        STA_LOG("malloc failed !!!");
        return;
    }
    wire::put(request + roam_delete_radio_offset, sta->radio_id);
    std::memcpy(request, sta->mac, strnlen(sta->mac, roam_delete_mac_size));
    STA_LOG("msg:mac = %s, radio = %d", sta->mac, sta->radio_id);
    if (was_ext_ioctl_msg(request, roam_delete_size, sta->ifname, driver_roam_delete, 0) != 0)
        STA_LOG("%s was ext ioctl get msg fail\n", sta->ifname);
    sta_free(request);
}

void sta_get_ap_mac(char *destination) {
    if (!destination) return;
    const descriptor file{open(ap_mac_file, O_RDONLY | O_CLOEXEC)};
    if (file.get() < 0) {
        std::perror(ap_mac_file);
        return;
    }
    (void)!read(file.get(), destination, ap_mac_size);
}
