"""The stub of the extension module has what the module has, under the same names and with the same arguments."""

import ast
import os
import pathlib
import re

import pytest

from cairn_lt import _cairn_lt

STUB = pathlib.Path(os.environ["CAIRN_SOURCE"]) / "python/cairn_lt/_cairn_lt.pyi"


def arguments(function):
    """The names of a function's parameters."""
    given = function.args
    names = [each.arg for each in given.args + given.kwonlyargs if each.arg != "self"]
    return names + (["args"] if given.vararg else [])


def stubbed():
    """name -> parameter names of what the stub declares; None for what is not called."""
    found = {}
    for node in ast.parse(STUB.read_text()).body:
        if isinstance(node, ast.FunctionDef):
            found[node.name] = arguments(node)
        elif isinstance(node, ast.AnnAssign):
            found[node.target.id] = None
        elif isinstance(node, ast.ClassDef):
            found[node.name] = None
            for member in node.body:
                if isinstance(member, ast.FunctionDef):
                    is_property = any(getattr(each, "id", "") == "property" for each in member.decorator_list)
                    found[f"{node.name}.{member.name}"] = None if is_property else arguments(member)
    return found


def bound():
    """The same of the module, from the signatures that its docstrings begin with."""
    found = {}

    def add(name, value):
        if isinstance(value, property):
            found[name] = None
            return
        signature = re.match(r"\w+\((.*)\) -> .*", value.__doc__.splitlines()[0])
        names = re.findall(r"(?:^|, )\*?(\w+)(?=[:,]|$)", re.sub(r"\[[^\[\]]*(\[[^\[\]]*\])*[^\[\]]*\]", "", signature[1]))
        found[name] = [each for each in names if each not in ("self", "arg0", "")]

    for name, value in vars(_cairn_lt).items():
        if name.startswith("__"):
            continue
        if not isinstance(value, type):
            if callable(value):
                add(name, value)
            else:
                found[name] = None
            continue
        found[name] = None
        for member, method in vars(value).items():
            if isinstance(method, property) or isinstance(method, staticmethod):
                add(f"{name}.{member}", getattr(value, member) if isinstance(method, staticmethod) else method)
            elif member in ("__init__", "__enter__", "__exit__", "__getitem__", "__contains__", "__len__") or (
                callable(method) and not member.startswith("_")
            ):
                if method.__doc__ and "->" in method.__doc__.splitlines()[0]:
                    add(f"{name}.{member}", method)
    return found


STUBBED = stubbed()
BOUND = bound()


def test_everything_bound_is_in_the_stub():
    assert sorted(set(BOUND) - set(STUBBED)) == []
    assert len(BOUND) > 150


def test_everything_in_the_stub_is_bound():
    inherited = {"InputError.file", "InputError.line", "InputError.problem", "InputError.remedy"}
    special = {name for name in STUBBED if name.rpartition(".")[2] in ("__eq__", "__hash__", "__iter__", "__next__")}
    assert sorted(set(STUBBED) - set(BOUND) - inherited - special) == []
    for name in special:
        kind, _, member = name.partition(".")
        assert member in vars(getattr(_cairn_lt, kind))


@pytest.mark.parametrize("name", sorted(set(BOUND) & set(STUBBED)))
def test_arguments_are_the_same(name):
    assert STUBBED[name] == BOUND[name]
