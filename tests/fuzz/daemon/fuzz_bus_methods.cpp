// The input is the arguments of a call, one a piece; the tag chooses the method.
#include "life.h"

#include "bus/object.h"
#include "bus/wsmd_object.h"
#include "outputs/bus_link.h"
#include "pieces.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static constexpr ubus_handler_t methods[] = {sta_ubus_get_info_methods,
                                                 sta_ubus_set_info_methods,
                                                 sta_ubus_delete_info_methods,
                                                 sta_wsmd_stations,
                                                 sta_wsmd_station,
                                                 sta_wsmd_departed,
                                                 sta_wsmd_health};
    life here;
    pieces calls(data, size);
    for (piece one; calls.next(one);) {
        ubus_request_data request{};
        bus_message arguments(one.bytes);
        methods[one.tag % std::size(methods)](sta_ubus_ctx, &sta_ubus_object, &request, "", arguments.head());
        here.take_reports();
    }
    return 0;
}
