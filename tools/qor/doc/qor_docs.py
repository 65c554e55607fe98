#!/usr/bin/env python3
"""Makes qor's manual page and bash completion from the tool's own help.

    qor_docs.py man QOR EXTRA_SECTIONS OUT    the manual page qor(1), in roff
    qor_docs.py bash-completion QOR OUT       the bash completion script

Every command, its arguments and its options come from `qor --help` and
`qor COMMAND... --help` (CLI11's layout), walked recursively, so that a new
command or option reaches the page and the completion with the next build.
What help cannot say (exit status, files, examples, ...) is kept by hand in
EXTRA_SECTIONS: roff text under [SECTION NAME] headers.
"""
import datetime
import os
import re
import subprocess
import sys

# CLI11 prints an entry's name in a column of this width, its description after it.
DESCRIPTION_COLUMN = 30
SECTION_TITLES = ("Positionals:", "Options:", "Subcommands:")


class Entry:
    """One line of a help section: a positional, an option or a subcommand."""

    def __init__(self, head, text):
        self.head = head  # "-o,--output TEXT=qor-rsa", "BITS INT:... REQUIRED", "keygen"
        self.text = text
        name, _, rest = head.partition(" ")
        self.names = name.split(",")
        self.value = rest.strip()  # type, default and constraints; empty for flags

    @property
    def takes_value(self):
        return bool(self.value)


class Command:
    def __init__(self, path, help_text):
        self.path = path  # ["rsa", "keygen"]
        self.description = ""
        self.usage = ""
        self.sections = {title: [] for title in SECTION_TITLES}
        self.footer = []
        self.children = []
        self._parse(help_text)

    def _parse(self, text):
        section = None
        entries = None
        lines = text.splitlines()
        for index, line in enumerate(lines):
            if line.startswith("Usage: "):
                self.usage = line[len("Usage: "):].strip()
            elif not self.usage:
                self.description = (self.description + " " + line.strip()).strip()
            elif line in SECTION_TITLES:
                section = line
                entries = self.sections[line]
            elif not line.strip():
                if section is not None and entries:
                    section = None  # a blank line ends a section; what follows the last one is the footer
            elif section is not None and line.startswith("  ") and not line.startswith(" " * DESCRIPTION_COLUMN):
                following = lines[index + 1] if index + 1 < len(lines) else ""
                head = line.strip() if self._stands_alone(line, following) else line[:DESCRIPTION_COLUMN].strip()
                entries.append(Entry(head, line[len(head) + 2:].strip()))
            elif section is not None and entries:
                entries[-1].text = (entries[-1].text + " " + line.strip()).strip()
            else:
                self.footer.append(line)

    @staticmethod
    def _stands_alone(line, following):
        """Whether an entry's name fills its line: names too long for the column
        are followed by the description on the next line."""
        if len(line) <= DESCRIPTION_COLUMN or line[DESCRIPTION_COLUMN - 1] != " ":
            return True
        if line[DESCRIPTION_COLUMN - 2] == " ":
            return False  # padding: the description starts at the column
        # A name of exactly the column's width less one, or a long name with a
        # space that happens to fall there: the next line tells.
        return following.startswith(" " * DESCRIPTION_COLUMN) and following.strip() != ""

    @property
    def positionals(self):
        return self.sections["Positionals:"]

    @property
    def options(self):
        return self.sections["Options:"]

    @property
    def subcommand_names(self):
        return [entry.names[0] for entry in self.sections["Subcommands:"]]

    def walk(self):
        yield self
        for child in self.children:
            yield from child.walk()


def read_help(qor, path):
    result = subprocess.run([qor, *path, "--help"], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    if result.returncode != 0:
        sys.exit(f"qor_docs: '{' '.join(['qor', *path, '--help'])}' failed: {result.stderr}")
    return result.stdout


def command_tree(qor, path=()):
    command = Command(list(path), read_help(qor, list(path)))
    for name in command.subcommand_names:
        command.children.append(command_tree(qor, (*path, name)))
    return command


# The manual page ---------------------------------------------------------------------------

def roff(text):
    """Plain text as roff: backslashes and hyphens escaped, no control character at a line start."""
    text = text.replace("\\", "\\e").replace("-", "\\-")
    return "\n".join("\\&" + line if line.startswith((".", "'")) else line for line in text.split("\n"))


def option_head(entry):
    names = ", ".join(f"\\fB{roff(name)}\\fR" for name in entry.names)
    return names + (f" \\fI{roff(entry.value)}\\fR" if entry.value else "")


def entry_list(entries, bold_names):
    lines = []
    for entry in entries:
        lines.append(".TP")
        if bold_names:
            lines.append(option_head(entry))
        else:
            lines.append(f"\\fI{roff(entry.names[0])}\\fR" + (f" ({roff(entry.value)})" if entry.value else ""))
        lines.append(roff(entry.text))
    return lines


def read_extra_sections(path):
    sections = {}
    name = None
    with open(path, encoding="utf-8") as extra:
        for line in extra.read().splitlines():
            match = re.fullmatch(r"\[([A-Z ]+)\]", line)
            if match:
                name = match.group(1)
                sections[name] = []
            elif name is not None:
                sections[name].append(line)
    return {key: "\n".join(lines).strip("\n") for key, lines in sections.items()}


def build_date():
    epoch = os.environ.get("SOURCE_DATE_EPOCH")
    moment = datetime.datetime.fromtimestamp(int(epoch), datetime.timezone.utc) if epoch else \
        datetime.datetime.now(datetime.timezone.utc)
    return moment.strftime("%Y-%m-%d")


def manual_page(tree, version, extra):
    out = []
    summary = tree.description.rstrip(".")
    summary = summary[:1].lower() + summary[1:]
    out += [f'.TH QOR 1 "{build_date()}" "{roff(version)}" "User Commands"',
            ".SH NAME", f"qor \\- {roff(summary)}",
            ".SH SYNOPSIS"]
    for command in tree.walk():
        if not command.children:
            out += [".br" if command is not tree else "", f"\\fB{roff(command.usage)}\\fR"]
    out = [line for line in out if line]
    out += [".SH DESCRIPTION", roff(tree.description)]
    if "DESCRIPTION" in extra:
        out += [".PP", extra["DESCRIPTION"]]
    if any(line.strip() for line in tree.footer):
        out += [".PP", ".nf", roff("\n".join(tree.footer).strip()), ".fi"]
    out += [".SH OPTIONS", "Options of qor itself, given before the command:"]
    out += entry_list(tree.options, bold_names=True)
    out += [".SH COMMANDS"]
    for command in tree.walk():
        if command is tree:
            continue
        parent = next(c for c in tree.walk() if command in c.children)
        out += [f'.SS "{roff(command.usage)}"', roff(command.description)]
        if command.positionals:
            out += [".PP", "Arguments:", ".RS"] + entry_list(command.positionals, bold_names=False) + [".RE"]
        own_options = [entry for entry in command.options if "--help" not in entry.names]
        if own_options:
            out += [".PP", "Options:", ".RS"] + entry_list(own_options, bold_names=True) + [".RE"]
        if command.children:
            out += [".PP", "Commands: " + ", ".join(f"\\fB{roff(n)}\\fR" for n in command.subcommand_names) + "."]
        if command.footer != parent.footer and any(line.strip() for line in command.footer):
            out += [".PP", roff(" ".join(line.strip() for line in command.footer if line.strip()))]
    for section in ("EXIT STATUS", "ENVIRONMENT", "FILES", "EXAMPLES", "SEE ALSO"):
        if section in extra:
            out += [f'.SH "{section}"', extra[section]]
    for section, text in extra.items():
        if section not in ("DESCRIPTION", "EXIT STATUS", "ENVIRONMENT", "FILES", "EXAMPLES", "SEE ALSO"):
            out += [f'.SH "{section}"', text]
    return "\n".join(out) + "\n"


# The bash completion ----------------------------------------------------------------------

def bash_word_list(words):
    return " ".join(words)


def bash_completion(tree):
    commands, options, valued = [], [], []
    for command in tree.walk():
        key = " ".join(["qor", *command.path])  # bash refuses an empty key
        names = [name for entry in command.options for name in entry.names]
        valued_names = [name for entry in command.options if entry.takes_value for name in entry.names]
        commands.append(f'  ["{key}"]="{bash_word_list(command.subcommand_names)}"')
        options.append(f'  ["{key}"]="{bash_word_list(names)}"')
        valued.append(f'  ["{key}"]="{bash_word_list(valued_names)}"')
    return BASH_TEMPLATE.format(commands="\n".join(commands), options="\n".join(options), valued="\n".join(valued))


BASH_TEMPLATE = r'''# bash completion for qor, the command-line tool of the qorc library.
# Made from qor's own help when qor is built: do not edit.

# Subcommands, options, and options that take a value, by command path.
declare -gA _qor_commands=(
{commands}
)
declare -gA _qor_options=(
{options}
)
declare -gA _qor_valued=(
{valued}
)

_qor_has_word() {{  # word list
  local candidate
  for candidate in $2; do [[ "$candidate" == "$1" ]] && return 0; done
  return 1
}}

_qor() {{
  local cur="${{COMP_WORDS[COMP_CWORD]}}"
  local path="qor" i word skip=0
  # Follow the words before the cursor down the command tree; options of a
  # command also stand after its subcommands, so their values are skipped too.
  for ((i = 1; i < COMP_CWORD; i++)); do
    word="${{COMP_WORDS[i]}}"
    if ((skip)); then skip=0; continue; fi
    if [[ "$word" == -* ]]; then
      local scope="$path" found=0
      while :; do
        if [[ "$word" != *=* ]] && _qor_has_word "$word" "${{_qor_valued[$scope]}}"; then found=1; break; fi
        [[ "$scope" == *" "* ]] || break
        scope="${{scope% *}}"
      done
      ((found)) && skip=1
      continue
    fi
    if _qor_has_word "$word" "${{_qor_commands[$path]}}"; then
      path="$path $word"
    elif [[ -n "${{_qor_commands[$path]}}" ]]; then
      return 0  # not a command of this level: nothing to offer
    fi
  done
  if ((skip)); then
    # The value of an option: a file name is the likeliest.
    compopt -o filenames 2>/dev/null
    COMPREPLY=($(compgen -f -- "$cur"))
    return 0
  fi
  if [[ "$cur" == -* ]]; then
    local words="${{_qor_options[$path]}}" scope="$path"
    while [[ "$scope" == *" "* ]]; do
      scope="${{scope% *}}"
      words+=" ${{_qor_options[$scope]}}"
    done
    COMPREPLY=($(compgen -W "$words" -- "$cur"))
  elif [[ -n "${{_qor_commands[$path]}}" ]]; then
    COMPREPLY=($(compgen -W "${{_qor_commands[$path]}}" -- "$cur"))
  else
    compopt -o filenames 2>/dev/null
    COMPREPLY=($(compgen -f -- "$cur"))
  fi
  return 0
}}
complete -F _qor qor
'''


def main(argv):
    if len(argv) == 5 and argv[1] == "man":
        qor, extra_path, out_path = argv[2:]
        tree = command_tree(qor)
        version = subprocess.run([qor, "--version"], stdout=subprocess.PIPE, text=True, check=True).stdout.strip()
        text = manual_page(tree, version, read_extra_sections(extra_path))
    elif len(argv) == 4 and argv[1] == "bash-completion":
        qor, out_path = argv[2:]
        text = bash_completion(command_tree(qor))
    else:
        sys.exit(__doc__)
    with open(out_path, "w", encoding="utf-8") as out:
        out.write(text)


if __name__ == "__main__":
    main(sys.argv)
