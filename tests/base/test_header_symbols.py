"""Which symbols a program needs from the libraries by only using their headers."""

import subprocess

# Functions that every implementation of these libraries exports. An inline function of a header that needs another one would
# make programs that were built here fail to start there.
EXPORTED = {
    "__ubus_monitor", "ubus_invoke_async_fd", "ubus_invoke_fd", "ubus_remove_object", "ubus_shutdown",
    "avl_find", "avl_find_greaterequal", "avl_find_lessequal", "blob_buf_init", "blob_nest_end", "blob_put",
    "blobmsg_add_field", "blobmsg_format_json_value_with_cb", "blobmsg_format_json_with_cb", "blobmsg_open_nested",
    "blobmsg_parse", "blobmsg_parse_array", "uci_lookup_next", "uloop_cancelled", "uloop_fd_add", "uloop_run_timeout",
    "uloop_timeout_cancel",
}
C_LIBRARY = {"strcmp", "strlen", "sysconf"}
HEADERS = ["libubus.h", "uci.h", "libubox/blobmsg_json.h", "libubox/avl-cmp.h", "libubox/utils.h", "libubox/uloop.h"]


def needed(source, tmp_path, tree):
    """The undefined symbols of a C program with every inline function of the headers in it."""
    (tmp_path / "program.c").write_text(source, encoding="utf-8")
    subprocess.run(["gcc", "-D_GNU_SOURCE", "-std=gnu11", "-O0", "-fkeep-inline-functions", f"-I{tree}/base/include", "-c",
                    tmp_path / "program.c", "-o", tmp_path / "program.o"], check=True)
    listed = subprocess.run(["nm", "-u", tmp_path / "program.o"], check=True, capture_output=True, text=True).stdout
    return {line.split()[-1] for line in listed.splitlines()}


def test_the_headers_make_a_program_need_exported_functions_only(tmp_path, pytestconfig):
    source = "".join(f"#include <{header}>\n" for header in HEADERS)
    assert needed(source, tmp_path, pytestconfig.rootpath) - C_LIBRARY == EXPORTED


def test_a_program_of_subscribers_needs_no_function_of_ours_alone(tmp_path, pytestconfig):
    source = """
#include <libubus.h>
int count(struct ubus_acl_key *key, struct ubus_context *ctx, struct ubus_subscriber *s) {
    struct acl_object *rule;
    int rules = ubus_unregister_subscriber(ctx, s);
    acl_for_each (rule, key) ++rules;
    return rules;
}
"""
    symbols = needed(source, tmp_path, pytestconfig.rootpath)
    assert "acl_objects" in symbols
    assert not {"ubus_unregister_subscriber", "__ubus_acl_matches"} & symbols
