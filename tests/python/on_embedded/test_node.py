"""What concerns a whole source or the node: state, commands, inputs, the suite's environment."""

import os
import unittest

import embedded
import pyORV3
from embedded import code_of


class Control(embedded.TestCase):
    def test_the_state_tells_open_changed_and_read_only(self):
        handle = self.create()
        self.ok(pyORV3.flush(handle))
        self.assertEqual(self.ok(pyORV3.getStatus(handle)), 1)
        self.set(handle, "QAR_C_COMMENT", "x")
        self.assertEqual(self.ok(pyORV3.getStatus(handle)), 1 | 2)
        self.assertEqual(self.ok(pyORV3.getStatus(self.open())) & 4, 4)

    def test_commands(self):
        handle = self.create()
        for command in (1, 2, 3):  # flush, compact, check
            self.set(handle, "QAR_L_LOWERDISC", command)
            self.ok(pyORV3.control(handle, command, 0))
            self.assertEqual(self.get(handle, "QAR_L_LOWERDISC"), command)
        self.assertEqual(self.ok(pyORV3.getStatus(handle)) & 2, 2)  # checking does not save
        self.ok(pyORV3.control(handle, 1, 0))
        self.assertEqual(self.ok(pyORV3.getStatus(handle)), 1)
        self.fails(embedded.UNKNOWN_ITEM, pyORV3.control(handle, 99, 0))

    def test_verifying_again_shows_what_another_process_wrote(self):
        handle = self.create()
        self.set(handle, "QAR_C_COMMENT", "old")
        handle = self.reopened(handle, mode=embedded.READ)
        script = """if True:
            import sys, pyORV3
            handle = pyORV3.open(sys.argv[1], 3, 1, "")[1]
            assert pyORV3.setParameter(handle, int(sys.argv[2]), "new", 1, 1) == 0
            assert pyORV3.close(handle, 0) == 0
        """
        embedded.output_of(embedded.child(script, self.path(), code_of("QAR_C_COMMENT")))
        self.ok(pyORV3.reverify(handle))
        self.assertEqual(self.get(handle, "QAR_C_COMMENT"), "new")


class Inputs(embedded.TestCase):
    SCRIPT = """if True:
        import sys, pyORV3
        print(*pyORV3.enumerateDefinitions())
        status, handle = pyORV3.open(sys.argv[1], 1, 0, "")
        print(status & 0xFFFFFFFF, pyORV3.getParameter(handle, int(sys.argv[2]), 1, 1)[1])
    """

    def test_the_data_sources_of_the_folder_are_the_inputs(self):
        inputs = self.folder / "inputs"
        inputs.mkdir()
        for name in ("det2", "det1"):
            handle = self.create(f"inputs/{name}.qar")
            self.set(handle, "QAR_C_COMMENT", name)
            self.ok(pyORV3.close(handle, 0))
        (inputs / "text.qar").write_text("no data source")
        (inputs / "notes.txt").write_text("no data source")
        self.ok(pyORV3.close(self.create("outside.qar"), 0))
        for folder, name, listed, opened in [
            (inputs, "det1", "0 det1,det2", "0 det1"),
            (inputs, "det3", "0 det1,det2", f"{embedded.FILE_NOT_FOUND} 0"),
            (inputs, "../outside", "0 det1,det2", None),
            (self.folder / "none", "det1", "0", None),
        ]:
            with self.subTest(folder=folder.name, name=name):
                arguments = (self.SCRIPT, name, code_of("QAR_C_COMMENT"))
                lines = embedded.output_of(
                    embedded.child(*arguments, ORV_INPUTS=str(folder))
                ).splitlines()
                self.assertEqual(lines[0].strip(), listed)
                if opened:
                    self.assertEqual(lines[1], opened)
                else:
                    self.assertNotEqual(lines[1].split()[0], "0")


REGISTRY = """Windows Registry Editor Version 5.00

[HKEY_LOCAL_MACHINE\\SOFTWARE\\Tarsel\\Orsova Environment]
"SUITE_DATA"="C:\\\\Daten\\\\Größe"
"SUITE_SET"="from the registry"
"SUITE_EMPTY"=""

[HKEY_LOCAL_MACHINE\\SOFTWARE\\Tarsel\\Else]
"SUITE_ELSE"="not the suite's environment"
"""


class SuiteEnvironment(embedded.TestCase):
    NAMES = ("SUITE_DATA", "SUITE_SET", "SUITE_ELSE", "OSVENV")
    SCRIPT = """if True:
        import os, sys, pyORV3
        registry, later, names = sys.argv[1], sys.argv[2], sys.argv[3:]
        pyORV3.enumerateDefinitions()
        if later:
            os.replace(later, registry)
        pyORV3.enumerateDefinitions()
        for name in names:
            metadata = pyORV3.getParameterMetaData(0, 0, name)[1]
            print(metadata[1] if metadata else "-")
    """

    def values(self, encoding="utf-16", later=None, registry=REGISTRY, **environment):
        """The variables that a process sees; later: the registry after the first call."""
        path = self.folder / "registry.reg"
        path.unlink(missing_ok=True)
        if registry is not None:
            path.write_bytes(registry.encode(encoding))
        second = self.folder / "later.reg" if later else ""
        if later:
            second.write_bytes(later.encode(encoding))
        variables = {"ORSOVA_REGISTRY": str(path), "PYTHONIOENCODING": "utf-8"} | environment
        process = embedded.child(self.SCRIPT, path, second, *self.NAMES, **variables)
        return embedded.output_of(process).splitlines()

    def test_the_registry_fills_the_environment_once(self):
        filled = ["C:\\Daten\\Größe", "from the registry", "-", "1"]
        changed = REGISTRY.replace("from the registry", "changed")
        for case, expected, given in [
            ("UTF-16 export", filled, {}),
            ("UTF-8 export", filled, {"encoding": "utf-8"}),
            ("read once", filled, {"later": changed}),
            ("missing file", ["-"] * 4, {"registry": None}),
            ("file comes later", filled, {"registry": None, "later": REGISTRY}),
            ("existing wins", [filled[0], "mine", "-", "1"], {"SUITE_SET": "mine"}),
            ("marker is honoured", ["-", "-", "-", "yes"], {"OSVENV": "yes"}),
            ("empty marker is none", filled, {"OSVENV": ""}),
            ("another key", ["-"] * 4, {"registry": REGISTRY.replace("Orsova", "Other")}),
        ]:
            with self.subTest(case):
                self.assertEqual(self.values(**given), expected)

    def test_the_inputs_folder_may_come_from_the_registry(self):
        self.ok(pyORV3.close(self.create("det1.qar"), 0))
        path = self.folder / "registry.reg"
        path.write_text(f'{REGISTRY.split("]", 1)[0]}]\n"ORV_INPUTS"="{self.folder}"\n')
        script = "import pyORV3; print(pyORV3.enumerateDefinitions())"
        environment = {name: text for name, text in os.environ.items() if name != "ORV_INPUTS"}
        process = embedded.child(script, **environment | {"ORSOVA_REGISTRY": str(path)})
        self.assertEqual(embedded.output_of(process), "(0, 'det1')")


if __name__ == "__main__":
    unittest.main()
