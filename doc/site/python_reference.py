#!/usr/bin/env python3
"""Prints the reference of the Python module as Markdown, from the docstrings in its sources.

    python_reference.py python/vantry
"""
import ast
import inspect
import pathlib
import sys

FUNCTIONS = (ast.FunctionDef, ast.AsyncFunctionDef)


def is_public(name):
    return not name.startswith("_")


def signature(node):
    arguments = ast.unparse(node.args)
    for receiver in ("self, ", "cls, ", "self", "cls"):
        if arguments.startswith(receiver):
            arguments = arguments[len(receiver):]
            break
    arguments = arguments.removeprefix("/, ")
    returns = f" -> {ast.unparse(node.returns)}" if node.returns else ""
    return f"{node.name}({arguments}){returns}"


def description(node):
    text = ast.get_docstring(node, clean=False)
    return inspect.cleandoc(text) if text else ""


def is_property(node):
    return any(isinstance(mark, ast.Name) and mark.id == "property" for mark in node.decorator_list)


def print_text(text):
    """A docstring, with its doctests as blocks of code."""
    lines, in_code = [], False
    for paragraph in text.split("\n\n"):
        code = paragraph.startswith(">>>")
        if code != in_code:
            lines.append("```py" if code else "```\n")
        elif lines:
            lines.append("")
        in_code = code
        lines.append(paragraph if code else paragraph.replace("\\", "\\\\"))
    if in_code:
        lines.append("```")
    print("\n".join(lines) + "\n")


def print_function(node, level):
    title = node.name if is_property(node) else signature(node)
    print(f"{'#' * level} {title}\n")
    print_text(description(node))


def print_module(path, name):
    module = ast.parse(path.read_text(encoding="utf-8"))
    members = [node for node in module.body
               if isinstance(node, (*FUNCTIONS, ast.ClassDef)) and is_public(node.name)
               and description(node)]
    if not members:
        return
    print(f"## Module {name}\n")
    print_text(description(module))
    for node in members:
        if isinstance(node, FUNCTIONS):
            print_function(node, 3)
            continue
        print(f"### class {node.name}\n")
        print_text(description(node))
        for member in node.body:
            if isinstance(member, FUNCTIONS) and is_public(member.name) and description(member):
                print_function(member, 4)


def main():
    folder = pathlib.Path(sys.argv[1])
    print("# Python reference {#python_reference}\n")
    for path in sorted(folder.glob("*.py"), key=lambda path: (path.stem != "__init__", path.stem)):
        if path.stem == "__init__":
            print_module(path, "vantry")
        elif is_public(path.stem):
            print_module(path, f"vantry.{path.stem}")


main()
