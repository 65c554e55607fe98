#!/usr/bin/env python3
"""qor's bash completion, sourced in bash and asked as Tab would ask it: the
commands and options it offers come from `qor --help` and `qor COMMAND... --help`,
and file names are offered where a command or an option wants a file.

    check_completion.py QOR COMPLETION_SCRIPT
"""
import os
import shlex
import subprocess
import sys
import tempfile
import unittest

import qor_help

SCRIPT = None


def complete_all(lines_list, cwd):
    """COMPREPLY for each command line (the cursor at its end), from one bash run."""
    script = [f"source {shlex.quote(SCRIPT)}"]
    for line in lines_list:
        words = line.split(" ")
        script += [f"COMP_WORDS=({' '.join(shlex.quote(w) for w in words)})", f"COMP_CWORD={len(words) - 1}",
                   "COMPREPLY=()", "_qor", 'printf "%s\\n" "${COMPREPLY[@]}" | sort', "echo '<<end>>'"]
    result = subprocess.run(["bash", "--norc", "--noprofile", "-c", "\n".join(script)], stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, text=True, cwd=cwd)
    if result.returncode != 0 or result.stderr:
        raise AssertionError(f"bash failed: {result.stderr}")
    replies = result.stdout.split("<<end>>\n")[:-1]
    return {line: [word for word in reply.splitlines() if word] for line, reply in zip(lines_list, replies)}


class Completion(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.tree = qor_help.command_tree()
        cls.folder = tempfile.TemporaryDirectory()
        for name in ("alpha.txt", "alpha.qz", "beta.txt"):
            open(os.path.join(cls.folder.name, name), "w").close()

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def complete(self, *lines):
        replies = complete_all(list(lines), self.folder.name)
        return replies if len(lines) > 1 else replies[lines[0]]

    def test_the_tree_has_commands_and_nested_commands(self):
        self.assertGreater(len(self.tree), 10)
        self.assertTrue(any(len(path) == 2 for path in self.tree))

    def test_commands_at_every_level(self):
        lines = {}
        for path, (children, _) in self.tree.items():
            if children:
                prefix = " ".join(("qor", *path))
                lines[prefix + " "] = sorted(children)
                for child in children:
                    lines[f"{prefix} {child[:2]}"] = sorted(c for c in children if c.startswith(child[:2]))
        replies = complete_all(list(lines), self.folder.name)
        for line, expected in lines.items():
            self.assertEqual(replies[line], expected, line)

    def test_options_of_each_command_and_of_the_commands_above_it(self):
        lines = {}
        for path, (_, options) in self.tree.items():
            inherited = [flag for depth in range(len(path)) for flag in self.tree[path[:depth]][1]]
            lines[" ".join(("qor", *path, "-"))] = set(options + inherited)
            long_options = [flag for flag in options if flag.startswith("--")]
            if long_options:
                lines[" ".join(("qor", *path, long_options[-1][:4]))] = None
        replies = complete_all(list(lines), self.folder.name)
        for line, expected in lines.items():
            if expected is None:
                prefix = line.rsplit(" ", 1)[1]
                self.assertTrue(replies[line] and all(w.startswith(prefix) for w in replies[line]), line)
            else:
                self.assertEqual(set(replies[line]), expected, line)

    def test_file_names_for_arguments_and_option_values(self):
        self.assertEqual(self.complete("qor pack al"), ["alpha.qz", "alpha.txt"])
        self.assertEqual(self.complete("qor pack --force alpha.txt b"), ["beta.txt"])
        self.assertEqual(self.complete("qor reg --store "), ["alpha.qz", "alpha.txt", "beta.txt"])
        self.assertEqual(self.complete("qor rsa keygen 512 -o al"), ["alpha.qz", "alpha.txt"])

    def test_option_values_are_not_taken_for_commands(self):
        # "list" after --store is the store's file name, not reg's command.
        self.assertEqual(self.complete("qor reg --store list l"), ["list"])
        self.assertEqual(self.complete("qor -q r"), ["reg", "rsa"])
        self.assertEqual(self.complete("qor nosuchcommand "), [])


if __name__ == "__main__":
    qor_help.QOR, SCRIPT = (os.path.abspath(arg) for arg in sys.argv[1:3])
    unittest.main(argv=sys.argv[:1], verbosity=1)
