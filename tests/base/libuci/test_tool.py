"""The uci tool where the recorded answers say nothing: input files, refused output, silence, batches."""

import os
import subprocess

import pytest

NETWORK = "config interface 'lan'\n\toption proto 'static'\n\tlist dns 'a'\n\tlist dns 'b'\n"


@pytest.fixture
def uci(build_dir, tmp_path):
    """Runs the tool in a folder with one package; the result has returncode, stdout and stderr."""
    (tmp_path / "etc").mkdir()
    (tmp_path / "etc" / "network").write_text(NETWORK)

    def run(*argv, **options):
        options.setdefault("stdout", subprocess.PIPE)
        command = ["uci", "-c", "etc", "-C", "", "-t", "save", *argv]
        return subprocess.run(
            command,
            executable=build_dir / "bin" / "uci",
            cwd=tmp_path,
            stderr=subprocess.PIPE,
            text=True,
            timeout=20,
            check=False,
            env=dict(os.environ, LC_ALL="C"),
            **options,
        )

    run.folder = tmp_path
    return run


@pytest.mark.parametrize("word", ["help", "HELP"])
def test_help_prints_the_usage(uci, word):
    done = uci(word)
    assert (done.returncode, done.stdout) == (0, "")
    assert done.stderr.startswith("Usage: uci [<options>] <command> [<arguments>]\n")


@pytest.mark.parametrize("argv, said", [
    (["-z", "get", "network.lan"], "invalid option -- 'z'"), (["get", "network.lan", "-q", "-z"], "invalid option -- 'z'"),
    (["-c"], "option requires an argument -- 'c'")])
def test_a_wrong_option_is_named_before_the_usage(uci, argv, said):
    done = uci(*argv)
    assert (done.returncode, done.stdout) == (0, "")
    assert done.stderr.startswith(f"uci: {said}\nUsage: uci [<options>] <command> [<arguments>]\n")


@pytest.mark.parametrize("argv", [["batch", "x"], ["add", "network"], ["show", "a", "b"], ["-m", "import"], ["set"]])
def test_a_wrong_number_of_arguments_prints_the_usage(uci, argv):
    done = uci(*argv)
    assert done.returncode == 255
    assert done.stderr.startswith("Usage: uci ")


def test_an_output_that_cannot_be_written_is_a_failure(uci):
    with open("/dev/full", "w", encoding="ascii") as full:
        done = uci("show", "network", stdout=full)
    assert (done.returncode, done.stderr) == (1, "uci: cannot write the output\n")


def test_a_missing_input_file_is_a_failure(uci):
    done = uci("-f", "nosuch", "batch")
    assert (done.returncode, done.stderr) == (1, "nosuch: No such file or directory\n")


def test_import_reads_its_input_file(uci):
    (uci.folder / "input").write_text("config a b\n")
    assert uci("-f", "input", "import", "fresh").returncode == 0
    assert (uci.folder / "etc" / "fresh").read_text() == "\nconfig a 'b'\n\n"


def test_import_of_nothing_makes_an_empty_package(uci):
    assert uci("import", "fresh", input="").returncode == 0
    assert (uci.folder / "etc" / "fresh").read_text() == "\n"


@pytest.mark.parametrize("name", ["../fresh", "/fresh", ".fresh"])
def test_import_writes_no_file_outside_of_the_folder(uci, name):
    done = uci("import", name, input="config a\n")
    assert (done.returncode, done.stderr) == (1, "uci: Invalid argument\n")
    assert sorted(path.name for path in uci.folder.iterdir()) == ["etc"]


def test_merging_into_a_missing_package_makes_it(uci):
    assert uci("-m", "import", "fresh", input="config a b\n").returncode == 0
    assert (uci.folder / "etc" / "fresh").read_text() == "\nconfig a 'b'\n\n"


def test_import_can_keep_generated_names(uci):
    assert uci("-n", "import", "fresh", input="config route\n").returncode == 0
    assert (uci.folder / "etc" / "fresh").read_text() == "\nconfig route 'cfg01c8b4'\n\n"


@pytest.mark.parametrize("value", ["x", ""])
def test_an_option_of_a_missing_section_can_neither_be_set_nor_emptied(uci, value):
    done = uci("set", f"network.none.mtu={value}")
    assert (done.returncode, done.stdout, done.stderr) == (1, "", "uci: Invalid argument\n")
    assert not (uci.folder / "save").exists()


def test_a_type_that_no_file_can_hold_is_not_added(uci):
    done = uci("add", "network", "two words")
    assert (done.returncode, done.stdout, done.stderr) == (2, "", "uci: Invalid argument\n")
    assert not (uci.folder / "save").exists()


def test_silence_covers_every_message_of_a_batch(uci):
    lines = "get network.nosuch\nbogus\nget a b c d\nget 'open\n"
    done = uci("-q", "batch", input=lines)
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")


def test_a_batch_goes_on_behind_each_kind_of_error(uci):
    lines = "get network.nosuch\nbogus\nget\nbatch\na b c d\nget nosuch.a\nGET network.lan\nget 'open\n"
    done = uci("batch", input=lines)
    assert done.returncode == 0
    assert done.stdout == "interface\n"
    assert done.stderr == (
        "uci: Entry not found\nUnknown command\nUnknown command\nUnknown command\nToo many arguments\n"
        "uci: Entry not found\nuci: Parse error (EOF with unterminated ') at line 8, byte 10\n"
    )


def test_a_parse_error_of_a_batch_counts_all_lines_before_it(uci):
    done = uci("batch", input="# a remark\n\nget network.lan\nget 'open\n")
    assert done.stderr == "uci: Parse error (EOF with unterminated ') at line 4, byte 10\n"


def test_a_batch_sees_what_its_lines_have_changed(uci):
    lines = "add network route\nset network.@route[-1].target=x\nrename network.@route[0]=r\ncommit\nshow network.r\n"
    done = uci("batch", input=lines)
    assert (done.stdout, done.stderr) == ("cfg02c8b4\nnetwork.r=route\nnetwork.r.target='x'\n", "")
    assert (uci.folder / "etc" / "network").read_text().endswith("\nconfig route 'r'\n\toption target 'x'\n\n")


def test_a_malformed_package_does_not_keep_the_others_from_being_committed(uci):
    (uci.folder / "etc" / "bad").write_text("nonsense\n")
    assert uci("set", "network.lan.proto=dhcp").returncode == 0
    done = uci("commit")
    assert (done.returncode, done.stderr) == (0, "uci: Parse error (invalid command) at line 1, byte 0\n")
    assert "option proto 'dhcp'" in (uci.folder / "etc" / "network").read_text()


def test_the_private_delta_folder_is_read_but_never_committed(uci):
    assert uci("-P", "private", "set", "network.lan.proto=dhcp").returncode == 0
    assert uci("-P", "private", "get", "network.lan.proto").stdout == "dhcp\n"
    assert uci("-P", "private", "commit", "network").returncode == 0
    assert uci("get", "network.lan.proto").stdout == "static\n"
    assert (uci.folder / "private" / "network").read_text() == "network.lan.proto='dhcp'\n"


def test_further_delta_folders_are_read_in_order(uci):
    for folder, value in (("one", "1"), ("two", "2")):
        (uci.folder / folder).mkdir()
        (uci.folder / folder / "network").write_text(f"network.lan.proto='{value}'\n")
    assert uci("-p", "one", "-p", "two", "get", "network.lan.proto").stdout == "2\n"
    assert uci("-p", "two", "-p", "one", "get", "network.lan.proto").stdout == "1\n"


def test_an_item_can_be_deleted_by_its_index_and_in_no_other_way(uci):
    assert uci("delete", "network.lan.dns=0").returncode == 0
    assert uci("get", "network.lan.dns").stdout == "b\n"
    for index in ("-1", "0x1", "1 "):
        done = uci("delete", f"network.lan.dns={index}")
        assert (done.returncode, done.stderr) == (1, "")
    assert uci("get", "network.lan.dns").stdout == "b\n"


@pytest.mark.parametrize("tuple_, left", [
    ("network.lan.proto=", "config interface 'lan'\n\tlist dns 'a'\n\tlist dns 'b'\n"),
    ("network.lan=", "")], ids=["option", "section"])
def test_a_deletion_with_an_empty_index_deletes_the_whole(uci, tuple_, left):
    assert uci("delete", tuple_).returncode == 0
    assert uci("commit").returncode == 0
    assert (uci.folder / "etc/network").read_text().strip("\n") == left.strip("\n")


def test_anonymous_sections_are_shown_with_their_place(uci):
    (uci.folder / "etc/many").write_text("config a\nconfig b 'named'\nconfig a 'other'\nconfig b\nconfig a\n")
    assert uci("show", "many").stdout == "many.@a[0]=a\nmany.named=b\nmany.other=a\nmany.@b[1]=b\nmany.@a[2]=a\n"


def test_sections_of_many_types_are_shown_with_their_places(uci):
    (uci.folder / "etc/many").write_text("".join(f"config t{number % 700}\n" for number in range(2100)))
    assert uci("show", "many").stdout.splitlines() == [f"many.@t{number % 700}[{number // 700}]=t{number % 700}"
                                                       for number in range(2100)]


@pytest.mark.parametrize("argv, said", [
    (["reorder", "network.lan.proto=2"], "uci: Entry not found\n"), (["add_list", "network.lan=v"], "uci: Invalid argument\n")])
def test_a_command_for_another_kind_of_entry_changes_nothing(uci, argv, said):
    done = uci(*argv)
    assert (done.returncode, done.stdout, done.stderr) == (1, "", said)
    assert not (uci.folder / "save").exists()


def test_a_commit_of_the_private_folder_does_not_look_for_the_package(uci):
    done = uci("-P", "private", "commit", "nosuch")
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")
