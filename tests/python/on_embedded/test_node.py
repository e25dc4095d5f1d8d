"""The inputs of the node."""

import pyORV3

import embedded
from embedded import code_of


class TestInputs(embedded.TestCase):
    SCRIPT = """if True:
        import sys, pyORV3
        print(*pyORV3.enumerateDefinitions())
        status, handle = pyORV3.open(sys.argv[1], 1, 0, "")
        print(status & 0xFFFFFFFF, pyORV3.getParameter(handle, int(sys.argv[2]), 1, 1)[1])
    """

    def test_inputs_are_the_data_sources_in_the_configured_folder(self):
        inputs = self.folder / "inputs"
        (inputs / "folder.qar").mkdir(parents=True)
        long_name = "n" * 200
        for name in ("det 2", "det 1", long_name):
            handle = self.create(f"inputs/{name}.qar")
            self.set(handle, "QAR_C_COMMENT", name)
            self.ok(pyORV3.flush(handle))
        (inputs / "text.qar").write_text("not a data source")
        self.create("inputs/other.dat")
        self.create("inputs/.qar")
        self.create("outside.qar")
        registry = self.folder / "inputs.reg"
        registry.write_text(
            "REGEDIT4\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Tarsel\\Orsova Environment]\n"
            f'"ORV_INPUTS"="{inputs}"\n'
        )
        from_registry = {"ORV_INPUTS": "", "ORSOVA_REGISTRY": str(registry)}
        refused = ["..", "../outside", "folder/det 1", "/det 1"]
        for name, opened, environment in [
            ("det 1", "0 det 1", {"ORV_INPUTS": str(inputs)}),
            ("det 2", "0 det 2", from_registry),
            ("det 3", f"{embedded.FILE_NOT_FOUND} 0", {"ORV_INPUTS": str(inputs)}),
            *((name, f"{embedded.NAME_REFUSED} 0", from_registry) for name in refused),
        ]:
            with self.subTest(name=name):
                output = self.python(
                    "-c", self.SCRIPT, name, code_of("QAR_C_COMMENT"), **environment
                )
                self.assertEqual(output.splitlines(), [f"0 det 1,det 2,{long_name}", opened])
