"""The documents show what the programs print."""

from wsmlab import examples


def test_every_example_in_the_documents_has_the_shape_of_what_the_programs_print(running_lab):
    documented = examples.in_documents()
    assert len(documented) >= 6
    produced = examples.produce(running_lab, [command for _, command, _ in documented])
    for path, command, text in documented:
        assert examples.shape(text) == examples.shape(produced[command]), f"{path.name}: {command}"
