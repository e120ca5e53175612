"""Which functions of the headers are the libraries', and which symbols a program needs by only using the headers."""

import re
import subprocess

import pytest

# What each of these libraries exports on every platform, as far as the headers here declare it. A function that is declared
# but is not in here would keep programs that were built with these headers from starting elsewhere.
LIBRARIES = {
    "libubox.so": """
        __calloc_a b64_decode b64_encode cbuf_alloc cbuf_free mkdir_p
        avl_blobcmp avl_delete avl_find avl_find_greaterequal avl_find_lessequal avl_init avl_insert avl_strcmp
        blob_attr_equal blob_buf_free blob_buf_grow blob_buf_init blob_check_type blob_fill_pad blob_memdup blob_nest_end
        blob_nest_start blob_new blob_parse blob_parse_untrusted blob_put blob_put_raw blob_set_raw_len
        blobmsg_add_field blobmsg_add_string_buffer blobmsg_alloc_string_buffer blobmsg_check_array blobmsg_check_array_len
        blobmsg_check_attr blobmsg_check_attr_len blobmsg_check_attr_list blobmsg_check_attr_list_len blobmsg_open_nested
        blobmsg_parse blobmsg_parse_array blobmsg_printf blobmsg_realloc_string_buffer blobmsg_vprintf
        uloop_cancelling uloop_done uloop_fd_add uloop_fd_delete uloop_get_next_timeout uloop_init uloop_interval_cancel
        uloop_interval_remaining uloop_interval_set uloop_process_add uloop_process_delete uloop_run_timeout uloop_signal_add
        uloop_signal_delete uloop_timeout_add uloop_timeout_cancel uloop_timeout_remaining uloop_timeout_remaining64
        uloop_timeout_set""",
    "libblobmsg_json.so": """
        blobmsg_add_json_element blobmsg_add_json_from_file blobmsg_add_json_from_string blobmsg_add_object
        blobmsg_format_json_value_with_cb blobmsg_format_json_with_cb""",
    "libubus.so": """
        __ubus_monitor ubus_abort_request ubus_add_object ubus_auto_connect ubus_channel_connect ubus_channel_create
        ubus_complete_deferred_request ubus_complete_request ubus_complete_request_async ubus_connect ubus_connect_ctx
        ubus_flush_requests ubus_free ubus_invoke_async_fd ubus_invoke_fd ubus_lookup ubus_lookup_id ubus_notify
        ubus_notify_async ubus_reconnect ubus_register_acl ubus_register_event_handler ubus_register_subscriber
        ubus_remove_object ubus_send_event ubus_send_reply ubus_shutdown ubus_strerror ubus_subscribe ubus_unsubscribe""",
    "libuci.so": """
        uci_add_delta_path uci_add_list uci_add_section uci_alloc_context uci_commit uci_del_list uci_delete uci_export
        uci_free_context uci_get_errorstr uci_hash_options uci_import uci_list_configs uci_load uci_lookup_next uci_lookup_ptr
        uci_parse_argument uci_parse_ptr uci_parse_section uci_perror uci_rename uci_reorder_section uci_revert uci_save
        uci_set uci_set_backend uci_set_conf2dir uci_set_confdir uci_set_savedir uci_unload uci_validate_text""",
}

# What is compiled into each program elsewhere: no library there has it.
INLINE = """
    INIT_LIST_HEAD _list_add _list_del list_add list_add_tail list_del list_del_init list_empty list_is_first list_is_last
    list_move list_move_tail list_splice list_splice_init list_splice_tail list_splice_tail_init
    __avl_find_element avl_is_empty avl_is_first avl_is_last cbuf_order cbuf_size uloop_end uloop_run
    blob_data blob_get_int16 blob_get_int32 blob_get_int64 blob_get_int8 blob_get_string blob_get_u16 blob_get_u32 blob_get_u64
    blob_get_u8 blob_id blob_is_extended blob_len blob_next blob_pad_len blob_put_string blob_put_u16 blob_put_u32 blob_put_u64
    blob_put_u8 blob_raw_len
    blobmsg_add_blob blobmsg_add_double blobmsg_add_string blobmsg_add_u16 blobmsg_add_u32 blobmsg_add_u64 blobmsg_add_u8
    blobmsg_buf_init blobmsg_cast_s64 blobmsg_cast_u64 blobmsg_clear_name blobmsg_close_array blobmsg_close_table blobmsg_data
    blobmsg_data_len blobmsg_get_bool blobmsg_get_double blobmsg_get_string blobmsg_get_u16 blobmsg_get_u32 blobmsg_get_u64
    blobmsg_get_u8 blobmsg_hdrlen blobmsg_len blobmsg_name blobmsg_namelen blobmsg_open_array blobmsg_open_table
    blobmsg_parse_array_attr blobmsg_parse_attr blobmsg_type
    blobmsg_format_json blobmsg_format_json_indent blobmsg_format_json_value blobmsg_format_json_value_indent
    ubus_add_uloop ubus_auto_shutdown ubus_context_is_channel ubus_defer_request ubus_handle_event ubus_monitor_start
    ubus_monitor_stop ubus_request_get_caller_fd ubus_request_set_fd ubus_strmatch_len ubus_unregister_event_handler
    ubus_unregister_subscriber
    uci_bitfield_set uci_lookup_option uci_lookup_option_string uci_lookup_package uci_lookup_section"""

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


@pytest.fixture(name="functions")
def declared_functions(tmp_path, pytestconfig):
    """{"extern": names, "static": names} of all functions that the installed headers declare or define, as C sees them."""
    include = pytestconfig.rootpath / "base/include"
    headers = sorted(str(path.relative_to(include)) for path in include.rglob("*.h"))
    (tmp_path / "all.c").write_text("".join(f"#include <{header}>\n" for header in headers), encoding="utf-8")
    subprocess.run(["gcc", "-D_GNU_SOURCE", "-std=gnu11", f"-I{include}", "-fsyntax-only", "-aux-info", tmp_path / "all.txt",
                    tmp_path / "all.c"], check=True)
    found = {"extern": set(), "static": set()}
    for line in (tmp_path / "all.txt").read_text(encoding="utf-8").splitlines():
        if told := re.match(rf"/\* {re.escape(str(include))}/\S+ \*/ (extern|static) [^(]*?(\w+) \(", line):
            found[told[1]].add(told[2])
    return found


def test_the_headers_declare_exactly_the_functions_that_every_platform_exports(functions):
    assert functions["extern"] == set(" ".join(LIBRARIES.values()).split())


def test_what_programs_have_compiled_in_elsewhere_is_compiled_in_here(functions):
    assert set(INLINE.split()) - functions["static"] == set()


@pytest.mark.parametrize("library", LIBRARIES)
def test_a_library_exports_what_the_headers_declare_of_it(build_dir, library):
    if not (build_dir / "bin/ubusd").exists():
        pytest.skip("the base libraries are those of the system")
    listed = subprocess.run(["nm", "-D", "--defined-only", build_dir / "lib" / library], check=True, capture_output=True,
                            text=True).stdout
    assert set(LIBRARIES[library].split()) - {line.split()[-1] for line in listed.splitlines()} == set()


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
