"""qor's commands and options as its help shows them (`qor --help`,
`qor COMMAND... --help`), for the checks of the documents made from it."""
import functools
import re
import subprocess

QOR = None  # the qor program; set by the check before the first call


@functools.lru_cache(maxsize=None)
def help_of(path=()):
    """The help text of the command `path` (a tuple of command names)."""
    return subprocess.run([QOR, *path, "--help"], stdout=subprocess.PIPE, text=True, check=True).stdout


def section_names(help_text, title):
    """The names (first column) of the entries under a section title of CLI11's help."""
    names, inside = [], False
    for line in help_text.splitlines():
        if line == title:
            inside = True
        elif inside and not line.strip():
            break
        elif inside and re.match(r"  \S", line):
            names.append(re.split(r"\s{2,}", line.strip())[0])
    return names


def options_of(help_text):
    """Every flag (-h, --help, ...) of a help text's Options section."""
    return [flag for head in section_names(help_text, "Options:") for flag in head.split(" ")[0].split(",")]


def command_tree(path=()):
    """{path: (subcommands, options)} for `path` and every command below it, depth first."""
    text = help_of(path)
    children = [name.split(" ")[0] for name in section_names(text, "Subcommands:")]
    tree = {path: (children, options_of(text))}
    for child in children:
        tree.update(command_tree((*path, child)))
    return tree
