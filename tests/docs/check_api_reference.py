#!/usr/bin/env python3
"""The API reference as a reader gets it: the HTML that Doxygen made, loaded in
headless Chromium (which runs the pages' scripts), has the pages of C_STRING and
C_FILE with their members documented, reached from the class list, and a page
for every public header.

    check_api_reference.py HTML_DIR HEADER_DIR
"""
import glob
import html
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

HTML_DIR = HEADER_DIR = None


def browser():
    for name in ("chromium", "chromium-browser", "google-chrome"):
        if shutil.which(name):
            return name
    raise AssertionError("no Chromium installed (scripts/setup-debian.sh installs it)")


def dump_dom(page):
    """The document as Chromium builds it from the file, as text."""
    with tempfile.TemporaryDirectory() as profile:
        result = subprocess.run(
            [browser(), "--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
             f"--user-data-dir={profile}", "--dump-dom", "file://" + os.path.abspath(os.path.join(HTML_DIR, page))],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=120)
    if result.returncode != 0 or "<html" not in result.stdout:
        raise AssertionError(f"Chromium could not load {page}: {result.stderr[-2000:]}")
    return result.stdout


def visible_text(dom):
    return html.unescape(re.sub(r"\s+", " ", re.sub(r"<[^>]+>", " ", dom)))


class ApiReference(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.class_list = dump_dom("annotated.html")

    def class_page(self, name):
        """The page the class list links for a class, loaded in the browser."""
        links = re.findall(r'<a[^>]*href="([^"#]+)"[^>]*>' + re.escape(name) + r"</a>", self.class_list)
        self.assertTrue(links, f"{name} is not in the class list")
        return dump_dom(links[0])

    def test_c_string_page(self):
        text = visible_text(self.class_page("C_STRING"))
        self.assertIn("C_STRING Class Reference", text)
        self.assertIn("counted and terminated array of C_CHAR", text)  # the class's own description
        for member in ("GetNumber", "Grow", "MatchWildCard", "GetNewUTF8", "ScanInt", "GetEnv"):
            self.assertIn(member, text)
        # Contracts reach the page: the pending error of a failure and who releases a result.
        self.assertIn("CerrValueTooHigh", text)
        self.assertIn("delete[]", text)

    def test_c_file_page(self):
        text = visible_text(self.class_page("C_FILE"))
        self.assertIn("C_FILE Class Reference", text)
        for member in ("ExpandPath", "ScanDir", "Lock", "GetLockers", "SetPosit", "CheckCompression", "COMPRESSED"):
            self.assertIn(member, text)
        self.assertIn("CerrFileEndReached", text)

    def test_a_page_for_every_public_header(self):
        with open(os.path.join(HTML_DIR, "files.html"), encoding="utf-8") as page:
            text = visible_text(page.read())
        headers = sorted(os.path.basename(path) for path in glob.glob(os.path.join(HEADER_DIR, "*.h")))
        self.assertGreater(len(headers), 10)
        for header in headers:
            self.assertIn(header, text)


if __name__ == "__main__":
    HTML_DIR, HEADER_DIR = sys.argv[1:3]
    unittest.main(argv=sys.argv[:1], verbosity=1)
