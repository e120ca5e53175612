"""The documents show what the programs print."""

from wsmlab import examples


def test_every_example_in_the_documents_has_the_shape_of_what_the_programs_print(lab):
    documented = examples.in_documents()
    assert len(documented) >= 18
    for (path, command, text), printed in zip(documented, examples.produce(lab, documented), strict=True):
        assert printed.strip(), command
        assert examples.shape(text) == examples.shape(printed), f"{path.name}: {command}"
