#!/usr/bin/env python3
"""Makes the manual pages and the shells' completions out of what "veldan help-tree" prints.

usage: make_pages.py TREE.json VERSION FOLDER

Into the folder go man/*.1, one page for the command and one for each of its commands, and completions/: veldan.bash,
_veldan (zsh) and veldan.fish. SOURCE_DATE_EPOCH is the date of the pages, today where it is not set.
"""
import json
import os
import re
import sys
import textwrap
import time
from pathlib import Path

# What the words that stand for values in the help are completed with; the others are numbers and names.
FILES = {"FILE", "OUT", "PHOTO", "A", "B", "SOURCE", "LOCATION"}
FOLDERS = {"DIR"}


def kind(value):
    return "files" if value in FILES else "folders" if value in FOLDERS else "none"


def walk(command, path=()):
    """The command and all below it, each with the words that lead to it."""
    path += (command["name"],)
    yield path, command
    for below in command["commands"]:
        yield from walk(below, path)


# Manual pages


def roff(text):
    return text.replace("\\", "\\e").replace("-", "\\-").replace("'", "\\(aq").replace("^", "\\(ha").replace("~", "\\(ti")


def lines(text):
    """Text as lines that roff fills and takes for no requests; each sentence begins a line."""
    wrapped = []
    for sentence in re.split(r"(?<=[a-z)][.!?]) +(?=[A-Z\"])", " ".join(text.split())):
        wrapped += textwrap.wrap(roff(sentence), 78, break_long_words=False, break_on_hyphens=False)
    return "".join(("\\&" if line[0] in "." else "") + line + "\n" for line in wrapped)


def bold(text):
    return f"\\fB{roff(text)}\\fR"


def italic(text):
    return f"\\fI{roff(text)}\\fR"


def argument_word(argument):
    word = italic(argument["name"]) + (" ..." if argument["often"] else "")
    return word if argument["required"] else f"[{word}]"


def synopsis(path, command):
    words = [bold(" ".join(path))]
    if command["commands"] and not command["arguments"]:
        return " ".join([*words, italic("COMMAND"), "[" + italic("ARGUMENT") + " ...]"])
    for option in command["options"]:
        if option["required"]:
            words.append(f"{bold(option['names'][-1])} {italic(option['value'])}")
    return " ".join([*words, "[" + italic("OPTION") + " ...]", *map(argument_word, command["arguments"])])


def sentence(option):
    said = option["description"].rstrip(".") + "."
    # "INT in [0 - 100]" and "POSITIVE", as the command's own help says it; of folders the word says enough.
    limits = re.search(r"\[(.*) - (.*)\]", option.get("range", ""))
    if limits and f"to {limits[2]}" not in said:
        said += f" From {limits[1]} to {limits[2]}."
    if option.get("default"):
        said += f" The default is {option['default']}."
    if option["required"]:
        said += " Required."
    return lines(said)


def option_page(option):
    value = " " + italic(option["value"]) if option.get("value") else ""
    return ".TP\n" + ", ".join(bold(name) + value for name in option["names"]) + "\n" + sentence(option)


def list_of(command):
    page = "".join(".TP\n" + italic(argument["name"]) + "\n" + sentence(argument) for argument in command["arguments"])
    return page + "".join(map(option_page, command["options"]))


def sections(text):
    """What stands below the options: paragraphs, and those of them that say exit codes and examples."""
    found = {"text": [], "exit": [], "examples": []}
    for paragraph in filter(None, (part.strip("\n") for part in text.split("\n\n"))):
        place = {"Exit codes": "exit", "Examples": "examples"}.get(paragraph.split(":")[0], "text")
        found[place].append(re.sub(r"^(Exit codes|Examples):\s*?\n?", "", paragraph, count=1))
    return found


def table_or_text(paragraph):
    """Lines of a number and what it means become a list; what is between them is text."""
    page = ""
    text = []
    for line in [*paragraph.split("\n"), None]:
        row = re.match(r" +(\d+)  (.*)", line) if line is not None else None
        if (row or line is None) and text:
            page += ".PP\n" + lines(" ".join(text))
            text = []
        if row:
            page += f".TP\n.B {row[1]}\n" + lines(row[2])
        elif line is not None:
            text.append(line)
    return page


def examples_page(paragraphs):
    page = ""
    for line in "\n".join(paragraphs).split("\n"):
        page += f"{roff(line.strip())}\n" if line.startswith("  ") else f".EE\n.PP\n{lines(line)}.EX\n" if line else ""
    return ".EX\n" + page + ".EE\n"


def man_page(path, command, tree, version, date):
    name = "-".join(path)
    said = sections(command["text"])
    page = f'.\\" Made by the build out of the help of the command.\n.TH {name.upper()} 1 "{date}" "Veldan {version}"\n'
    page += f".SH NAME\n{name} \\- {lines(command['description'].rstrip('.'))}"
    page += ".SH SYNOPSIS\n"
    below = list(walk(command, path[:-1]))[1:] if len(path) > 1 else []
    alone = not below or command["arguments"]
    usages = ([synopsis(path, command)] if alone else []) + [synopsis(sub, known) for sub, known in below]
    page += "\n.br\n".join(usages) + "\n"
    if said["text"]:
        page += ".SH DESCRIPTION\n" + ".PP\n".join(map(lines, said["text"]))
    if len(path) == 1 and command["commands"]:
        page += ".SH COMMANDS\n"
        for sub in command["commands"]:
            page += f".TP\n\\fB{roff(name + '-' + sub['name'])}\\fR(1)\n" + lines(sub["description"] + ".")
    if alone:
        page += ".SH OPTIONS\n" + list_of(command)
    for sub, known in below:
        page += f".SH \"{roff(' '.join(sub[1:]).upper())}\"\n" + lines(known["description"] + ".") + list_of(known)
        if sections(known["text"])["text"]:
            page += ".PP\n" + ".PP\n".join(map(lines, sections(known["text"])["text"]))
    exits = said["exit"] + [text for _, known in below for text in sections(known["text"])["exit"]]
    if exits:
        page += ".SH \"EXIT STATUS\"\n" + "".join(map(table_or_text, exits)).removeprefix(".PP\n")
    examples = said["examples"] + [text for _, known in below for text in sections(known["text"])["examples"]]
    if examples:
        page += ".SH EXAMPLES\n" + examples_page(examples)
    others = [tree["name"]] + [f"{tree['name']}-{sub['name']}" for sub in tree["commands"]]
    page += ".SH \"SEE ALSO\"\n" + ",\n".join(f"\\fB{roff(other)}\\fR(1)" for other in others if other != name) + "\n"
    return page


# Completions


def names_of(command, wanted=None):
    return " ".join(name for option in command["options"] for name in option["names"]
                    if wanted is None or ("value" in option and kind(option["value"]) == wanted))


def arguments_kind(command):
    return "files" if any(kind(argument["name"]) == "files" for argument in command["arguments"]) else "none"


def bash_completion(tree):
    paths = [" ".join(path) for path, _ in walk(tree)]
    cases = ""
    for path, command in walk(tree):
        cases += f'        "{" ".join(path)}")\n'
        words = [sub["name"] for sub in command["commands"]] + (["help"] if len(path) == 1 else [])
        for variable, value in (("commands", " ".join(words)), ("options", names_of(command)),
                                ("files", names_of(command, "files")), ("folders", names_of(command, "folders")),
                                ("plain", names_of(command, "none")), ("arguments", arguments_kind(command))):
            if value not in ("", "none"):
                cases += f'            {variable}="{value}"\n'
        cases += "            ;;\n"
    chain = " | ".join(f'"{path}"' for path in paths[1:])
    return f'''# bash completion for veldan; made by the build out of the help of the command.

_veldan() {{
    local word=${{COMP_WORDS[COMP_CWORD]}} before=${{COMP_WORDS[COMP_CWORD - 1]}} path=veldan i
    local commands="" options="" files="" folders="" plain="" arguments="" found=""
    # bash takes "--draw=out" apart.
    if [[ $word == "=" ]]; then
        word=""
    elif [[ $before == "=" ]]; then
        before=${{COMP_WORDS[COMP_CWORD - 2]}}
    fi
    for ((i = 1; i < COMP_CWORD; ++i)); do
        case "$path ${{COMP_WORDS[i]}}" in
            {chain}) path="$path ${{COMP_WORDS[i]}}" ;;
        esac
    done
    case $path in
{cases}    esac
    COMPREPLY=()
    if [[ " $plain " == *" $before "* ]]; then
        return
    elif [[ " $folders " == *" $before "* ]]; then
        found=$(compgen -d -- "$word")
    elif [[ " $files " == *" $before "* ]]; then
        found=$(compgen -f -- "$word")
    elif [[ $word == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
        return
    else
        found=$(compgen -W "$commands" -- "$word"; [[ $arguments != files ]] || compgen -f -- "$word")
    fi
    compopt -o filenames 2>/dev/null
    [[ -z $found ]] || mapfile -t COMPREPLY <<<"$found"
}}

complete -F _veldan veldan
'''


def zsh_text(text):
    return re.sub(r"([\[\]:\\])", r"\\\1", " ".join(text.split())).replace("'", "'\\''")


def zsh_action(value):
    return {"files": "_files", "folders": "_files -/", "none": " "}[kind(value)]


def zsh_option(option):
    names = option["names"]
    value = f":{option['value']}:{zsh_action(option['value'])}" if option.get("value") else ""
    described = f"'[{zsh_text(option['description'])}]{value}'"
    excluded = "" if option["often"] and value else f"'({' '.join(names)})'"
    shown = [name + ("" if not value else "=" if name.startswith("--") else "+") for name in names]
    return excluded + (f"{{{','.join(shown)}}}" if len(shown) > 1 else shown[0]) + described


def zsh_completion(tree):
    script = "#compdef veldan\n# zsh completion for veldan; made by the build out of the help of the command.\n"
    for path, command in walk(tree):
        specs = [zsh_option(option) for option in command["options"]]
        if command["commands"]:
            specs += ["'1: :->command'", "'*:: :->rest'"]
        for place, argument in enumerate(command["arguments"] if not command["commands"] else [], 1):
            where = "*" if argument["often"] else str(place)
            # Options come first where nothing is known of the argument.
            action = "_files" if kind(argument["name"]) == "files" else f'_guard "^-*" {argument["name"]}'
            specs.append(f"'{where}:{argument['name']}:{action}'")
        script += f"\n_{'_'.join(path)}() {{\n"
        if command["commands"]:
            script += "    local curcontext=\"$curcontext\" state line\n    local -a commands=(\n"
            words = [(sub["name"], sub["description"]) for sub in command["commands"]]
            words += [("help", "Tell more about a command")] if len(path) == 1 else []
            script += "".join(f"        '{name}:{zsh_text(text)}'\n" for name, text in words) + "    )\n"
        script += "    _arguments -C" + "".join(f" \\\n        {spec}" for spec in specs) + "\n"
        if command["commands"]:
            files = "; _files" if arguments_kind(command) == "files" else ""
            script += f"    case $state in\n        command) _describe -t commands command commands{files} ;;\n        rest)\n"
            if len(path) == 1:
                script += "            [[ $words[1] == help ]] && _describe -t commands command commands && return\n"
            prefix = "_".join(path)
            script += f"            (( $+functions[_{prefix}_$words[1]] )) && _{prefix}_$words[1]\n            ;;\n    esac\n"
        script += "}\n"
    return script + "\n_veldan \"$@\"\n"


def fish_text(text):
    return "'" + " ".join(text.split()).replace("\\", "\\\\").replace("'", "\\'") + "'"


def fish_completion(tree):
    paths = " ".join(f"'{' '.join(path)}'" for path, _ in list(walk(tree))[1:])
    script = f'''# fish completion for veldan; made by the build out of the help of the command.

function __veldan_at
    set -l path veldan
    for word in (commandline -opc)[2..-1]
        contains -- "$path $word" {paths}
        and set path "$path $word"
    end
    test "$path" = "$argv"
end

complete -c veldan -f
complete -c veldan -n '__veldan_at veldan' -a help -d 'Tell more about a command'
'''
    for path, command in walk(tree):
        here = f"complete -c veldan -n '__veldan_at {' '.join(path)}'"
        for sub in command["commands"]:
            script += f"{here} -a {sub['name']} -d {fish_text(sub['description'])}\n"
        for option in command["options"]:
            names = "".join(f" -l {name[2:]}" if name.startswith("--") else f" -s {name[1:]}" for name in option["names"])
            value = {"files": " -r -F", "folders": " -x -a '(__fish_complete_directories)'", "none": " -x"}
            takes = value[kind(option["value"])] if option.get("value") else ""
            script += f"{here}{names}{takes} -d {fish_text(option['description'])}\n"
        if arguments_kind(command) == "files":
            script += f"{here} -F\n"
    return script


def main():
    source, version, folder = sys.argv[1:]
    tree = json.loads(Path(source).read_text())
    date = time.strftime("%Y-%m-%d", time.gmtime(int(os.environ.get("SOURCE_DATE_EPOCH", time.time()))))
    pages = Path(folder, "man")
    completions = Path(folder, "completions")
    for made in (pages, completions):
        made.mkdir(parents=True, exist_ok=True)
        for old in made.iterdir():
            old.unlink()
    for path, command in walk(tree):
        if len(path) <= 2:
            (pages / f"{'-'.join(path)}.1").write_text(man_page(path, command, tree, version, date))
    (completions / "veldan.bash").write_text(bash_completion(tree))
    (completions / "_veldan").write_text(zsh_completion(tree))
    (completions / "veldan.fish").write_text(fish_completion(tree))


if __name__ == "__main__":
    main()
