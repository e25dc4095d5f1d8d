"""What concerns a whole source or the node: state, commands, inputs, the suite's environment."""

import embedded
import pyORV3
from embedded import code_of


class Control(embedded.TestCase):
    def test_state_and_commands(self):
        handle = self.create()
        for command, state in ((1, 1), (2, 1), (3, 1 | 2)):  # flush, compact, check: saves nothing
            self.set(handle, "QAR_L_LOWERDISC", command)
            self.assertEqual(self.ok(pyORV3.getStatus(handle)), 1 | 2)
            self.ok(pyORV3.control(handle, command, 0))
            self.assertEqual(self.ok(pyORV3.getStatus(handle)), state)
            self.assertEqual(self.get(handle, "QAR_L_LOWERDISC"), command)
        self.assertEqual(self.ok(pyORV3.getStatus(self.open())) & 4, 4)
        self.fails(embedded.UNKNOWN_ITEM, pyORV3.control(handle, 99, 0))


class Inputs(embedded.TestCase):
    SCRIPT = """if True:
        import sys, pyORV3
        print(*pyORV3.enumerateDefinitions())
        status, handle = pyORV3.open(sys.argv[1], 1, 0, "")
        print(status & 0xFFFFFFFF, pyORV3.getParameter(handle, int(sys.argv[2]), 1, 1)[1])
    """

    def test_the_data_sources_of_the_folder_are_the_inputs(self):
        inputs = self.folder / "inputs"
        (inputs / "folder.qar").mkdir(parents=True)
        long_name = "n" * 200
        for name in ("det 2", "det 1", long_name):
            handle = self.create(f"inputs/{name}.qar")
            self.set(handle, "QAR_C_COMMENT", name)
            self.ok(pyORV3.flush(handle))
        (inputs / "text.qar").write_text("no data source")
        self.create("inputs/other.dat")
        self.create("outside.qar")
        registry = self.folder / "inputs.reg"
        registry.write_text(f'{REGISTRY.split("]", 1)[0]}]\n"ORV_INPUTS"="{inputs}"\n')
        from_registry = {"ORV_INPUTS": "", "ORSOVA_REGISTRY": str(registry)}
        refused = ["..", "../outside", "folder/det 1", "/det 1"]
        for name, opened, environment in [
            ("det 1", "0 det 1", {"ORV_INPUTS": str(inputs)}),
            ("det 2", "0 det 2", from_registry),
            ("det 3", f"{embedded.FILE_NOT_FOUND} 0", {"ORV_INPUTS": str(inputs)}),
            *((name, f"{embedded.NAME_REFUSED} 0", from_registry) for name in refused),
        ]:
            with self.subTest(name=name):
                process = embedded.child(self.SCRIPT, name, code_of("QAR_C_COMMENT"), **environment)
                lines = embedded.output_of(process).splitlines()
                self.assertEqual(lines, [f"0 det 1,det 2,{long_name}", opened])


REGISTRY = """Windows Registry Editor Version 5.00

[HKEY_LOCAL_MACHINE\\SOFTWARE\\Tarsel\\Orsova Environment]
"SUITE_DATA"="C:\\\\Daten\\\\Größe"
"SUITE_SET"="from the registry"

[HKEY_LOCAL_MACHINE\\SOFTWARE\\Tarsel\\Else]
"SUITE_ELSE"="not the suite's environment"
"""


class SuiteEnvironment(embedded.TestCase):
    NAMES = ("SUITE_DATA", "SUITE_SET", "SUITE_ELSE", "OSVENV")
    SCRIPT = """if True:
        import sys, pathlib, pyORV3
        pyORV3.enumerateDefinitions()
        pathlib.Path(sys.argv[1]).write_text(sys.argv[2], encoding="utf-8")
        for name in sys.argv[3:]:
            metadata = pyORV3.getParameterMetaData(0, 0, name)[1]
            print(metadata[1] if metadata else "-")
    """

    def test_the_registry_fills_the_environment_once(self):
        path = self.folder / "registry.reg"
        filled = ["C:\\Daten\\Größe", "from the registry", "-", "1"]
        other = REGISTRY.replace("Orsova", "Other")
        changed = REGISTRY.replace("from the registry", "changed")
        # What is expected, the registry at first (None: no file) and later, variables before.
        for expected, registry, later, variables in [
            (filled, REGISTRY, changed, {}),
            (filled, None, REGISTRY, {}),
            (["-"] * 4, other, other, {}),
            ([filled[0], "mine", "-", "1"], REGISTRY, changed, {"SUITE_SET": "mine"}),
            (["-", "-", "-", "yes"], REGISTRY, changed, {"OSVENV": "yes"}),
        ]:
            with self.subTest(registry=registry, later=later, **variables):
                if path.exists():
                    path.unlink()
                if registry:
                    path.write_bytes(registry.encode("utf-16"))
                variables.update(ORSOVA_REGISTRY=str(path), PYTHONIOENCODING="utf-8")
                process = embedded.child(self.SCRIPT, path, later, *self.NAMES, **variables)
                self.assertEqual(embedded.output_of(process).splitlines(), expected)
