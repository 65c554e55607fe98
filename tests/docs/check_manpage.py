#!/usr/bin/env python3
"""The manual page qor(1) keeps up with qor: every command and every option that
`qor --help` and `qor COMMAND... --help` show is in it, each command in its own
subsection with its options, each command with an example, and the sections
that help cannot give are there.

    check_manpage.py QOR MANPAGE
"""
import os
import re
import subprocess
import sys
import unittest

import qor_help
from qor_help import help_of, options_of, section_names

MANPAGE = None


def rendered_page():
    env = dict(os.environ, LANG="C", LC_ALL="C", MANWIDTH="250")
    text = subprocess.run(["man", "--no-hyphenation", "--no-justification", "-l", MANPAGE], stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, env=env, text=True, check=True).stdout
    return re.sub(r".\x08", "", text)  # overstriking of bold and underlined text


def sections(text):
    """Top-level sections (NAME, COMMANDS, ...) and, inside COMMANDS, one text per subsection."""
    top, subsections = {}, {}
    name = sub = None
    for line in text.splitlines():
        if re.match(r"[A-Z][A-Z ]+$", line):
            name, sub = line.strip(), None
            top[name] = ""
        elif name == "COMMANDS" and re.match(r"   \S", line):
            sub = line.strip()
            subsections[sub] = ""
        elif name is not None:
            top[name] += line + "\n"
            if sub is not None:
                subsections[sub] += line + "\n"
    return top, subsections


class ManualPage(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.top, cls.subsections = sections(rendered_page())
        cls.commands = [path for path in qor_help.command_tree() if path]

    def subsection_of(self, path):
        title = "qor " + " ".join(path)
        # "qor rsa [OPTIONS] SUBCOMMAND" is rsa's; "qor rsa keygen [OPTIONS] BITS" is not.
        own = re.compile(re.escape(title) + r"( [\[A-Z].*)?$")
        found = [text for heading, text in self.subsections.items() if own.match(heading)]
        self.assertEqual(len(found), 1, f"no subsection '{title} ...' in COMMANDS")
        return found[0]

    def test_help_shows_the_commands_walked(self):
        # The walk itself must see a tree, or every check below passes vacuously.
        self.assertGreater(len(self.commands), 10)
        self.assertTrue(any(len(path) == 2 for path in self.commands))

    def test_sections_that_help_cannot_give(self):
        for name in ("NAME", "SYNOPSIS", "DESCRIPTION", "OPTIONS", "COMMANDS", "EXIT STATUS", "FILES", "EXAMPLES"):
            self.assertIn(name, self.top)
        for status in ("0", "1", "2"):
            self.assertRegex(self.top["EXIT STATUS"], rf"(?m)^\s+{status}\s")

    def test_every_option_of_qor_itself(self):
        for flag in options_of(help_of()):
            self.assertRegex(self.top["OPTIONS"], rf"(?<![\w-]){re.escape(flag)}(?![\w-])")

    def test_every_command_with_its_description_arguments_and_options(self):
        for path in self.commands:
            with self.subTest(command=" ".join(path)):
                text = self.subsection_of(path)
                help_text = help_of(path)
                description = help_text.splitlines()[0]
                self.assertIn(" ".join(description.split()), " ".join(text.split()))
                for positional in section_names(help_text, "Positionals:"):
                    self.assertIn(positional.split(" ")[0], text)
                for flag in options_of(help_text):
                    where = self.top["OPTIONS"] if flag in ("-h", "--help") else text
                    self.assertRegex(where, rf"(?<![\w-]){re.escape(flag)}(?![\w-])")

    def test_every_command_in_the_synopsis(self):
        synopsis = self.top["SYNOPSIS"]
        leaves = [path for path in self.commands if not any(other[:len(path)] == path and other != path
                                                            for other in self.commands)]
        for path in leaves:
            self.assertRegex(synopsis, r"(?m)^\s+qor " + re.escape(" ".join(path)) + r"\b")

    def test_every_command_has_an_example(self):
        examples = self.top["EXAMPLES"].splitlines()
        for path in self.commands:
            pattern = r"\bqor\b" + "".join(rf".*\b{re.escape(word)}\b" for word in path)
            with self.subTest(command=" ".join(path)):
                self.assertTrue(any(re.search(pattern, line) for line in examples),
                                f"no example of 'qor {' '.join(path)}' in EXAMPLES (tools/qor/doc/qor.1.extra)")


if __name__ == "__main__":
    qor_help.QOR, MANPAGE = sys.argv[1:3]
    unittest.main(argv=sys.argv[:1], verbosity=1)
