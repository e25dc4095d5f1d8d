"""The pages of `qar view`: who gets them, and that no file changes."""

import http.client
import os
import re
import signal
import subprocess
import sys
import urllib.parse

import qar
import support

FILES = 1000
TWO = (
    "<RadInstrumentData>"
    + "".join(
        f'<RadMeasurement><Spectrum id="{name}"><ChannelData>{count} 2</ChannelData></Spectrum>'
        "</RadMeasurement>"
        for name, count in (("A", 5), ("B", 6))
    )
    + "</RadInstrumentData>"
)


class TestView(support.TestCase):
    def setUp(self):
        super().setUp()
        os.mkdir("in")
        os.mkdir("tmp")
        with qar.open(support.make_spectrum("in/a.qar", peak_height=300), "r+") as source:
            source.analyse()
        self.write("in/damaged.qar", "no measurement")
        self.write("in/two.n42", TWO)
        self.write("library.csv", support.LIBRARY.replace("Cs-137", "Zz-1"))
        self.write("secret.qar", "secret")
        self.before = {name: (self.folder / "in" / name).read_bytes() for name in os.listdir("in")}

    def start(self, *arguments):
        """Start the server; its port and the path of its list."""
        command = [sys.executable, "-B", "-m", "qar", "view", "--no-browser", *arguments]
        self.process = subprocess.Popen(
            command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, encoding="utf-8",
            env={**os.environ, "TMPDIR": str(self.folder / "tmp")},
        )  # fmt: skip
        self.addCleanup(self.process.stdout.close)
        self.addCleanup(self.process.wait)
        self.addCleanup(self.process.kill)
        address = urllib.parse.urlsplit(self.process.stdout.readline().strip())
        self.assertEqual(address.hostname, "127.0.0.1")
        self.port = address.port
        return address.path

    def get(self, path, method="GET", **headers):
        """The status and the body of the answer to a request."""
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=60)
        self.addCleanup(connection.close)
        connection.putrequest(method, path, skip_host=True)
        for name, value in {"Host": f"127.0.0.1:{self.port}", **headers}.items():
            connection.putheader(name.replace("_", "-"), value)
        connection.endheaders()
        answer = connection.getresponse()
        return answer.status, answer.read().decode("utf-8")

    def page(self, path):
        status, text = self.get(path)
        self.assertEqual(status, 200, path)
        return text

    def found(self, pattern, path):
        """True if the text of a page, without its tags, has a match."""
        return bool(re.search(pattern, re.sub("<[^>]*>", " ", self.page(path))))

    def test_analysis_with_other_settings_leaves_the_files_unchanged(self):
        root = self.start("in", "--library", "library.csv")
        links = dict(re.findall(r'href="(\d+)">([^<]+)</a>', self.page(root)))
        self.assertEqual(list(links.values()), ["a.qar", "damaged.qar", "two.n42"])
        (own,) = re.findall(r'value="(\d+)"[^>]*>library.csv<', self.page(root + "1"))
        cases = (("1", r"(?s)\b2 peaks.* Cs-137 "), ("1?limit=90", r"\b0 peaks"),
                 (f"1?library={own}&limit=4", r"(?s)\b2 peaks.* Zz-1 "), ("1?limit=much", r"limit: .*much"),
                 ("1?limit=0", "1 to 100 sigma"), ("2", "not a data source"),
                 ("3", r"\b8 counts"), ("3?spectrum=1", r"\b7 counts"), ("3?spectrum=9", r"\b8 counts"))  # fmt: skip
        for path, pattern in cases:
            self.assertTrue(self.found(pattern, root + path), path)
        after = {name: (self.folder / "in" / name).read_bytes() for name in os.listdir("in")}
        self.assertEqual((after, os.listdir("tmp")), (self.before, []))

    def test_untrusted_requests_get_nothing(self):
        root = self.start("in")
        own = f"127.0.0.1:{self.port}"
        self.assertEqual(self.get(root, Origin=f"http://{own}", Sec_Fetch_Site="none")[0], 200)
        token = root.strip("/")
        wrong = ("A" if token[0] != "A" else "B") + token[1:]
        requests = [
            ("/", {}), ("/1", {}), (f"/{wrong}/", {}), (f"/{token[:-1]}/", {}), (f"/{token}", {}),
            (root + "../secret.qar", {}), (root + "%2e%2e/secret.qar", {}), (root + "in/a.qar", {}),
            (f"{root}{self.folder}/secret.qar", {}), (root + "4", {}), (root + "-1", {}), (root + "٣", {}),
            (root, {"Origin": "http://example.com"}), (root, {"Origin": "null"}),
            (root, {"Host": f"example.com:{self.port}"}), (root, {"Host": "127.0.0.1"}),
            (root, {"Sec_Fetch_Site": "cross-site"}),
        ]  # fmt: skip
        for path, headers in requests:
            path = urllib.parse.quote(path, safe="/%.")
            self.assertEqual(self.get(path, **headers), (404, ""), (path, headers))
        self.assertEqual(self.get(root, method="POST"), (501, ""))

    def test_signal_during_an_analysis_leaves_nothing(self):
        for number, code in ((signal.SIGTERM, -signal.SIGTERM), (signal.SIGINT, 0)):
            root = self.start("in")
            connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=60)
            self.addCleanup(connection.close)
            connection.request("GET", root + "1?limit=3")
            while not os.listdir("tmp") and self.process.poll() is None:
                pass  # until the copy exists
            self.process.send_signal(number)
            self.assertEqual(self.process.wait(60), code)
            self.assertEqual(os.listdir("tmp"), [])

    def test_files_are_listed_without_reading_them(self):
        os.mkdir("many")
        for number in range(FILES):
            os.symlink("/nowhere", f"many/{number}.n42")
        self.assertEqual(self.page(self.start("many")).count("<a href"), FILES)
