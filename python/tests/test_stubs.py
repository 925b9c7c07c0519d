"""The type stubs name exactly what the module has, so that editors complete the real names."""
import ast
import pathlib

import kelscan

STUB = pathlib.Path(__file__).resolve().parents[1] / "kelscan.pyi"
HELPERS = {"ArrayLike", "Floats", "Ints", "PathLike"}  # type aliases of the stub itself


def names(body):
    out = {}
    for node in body:
        if isinstance(node, ast.ClassDef):
            out[node.name] = names(node.body)
        elif isinstance(node, ast.FunctionDef):
            out[node.name] = None
        elif isinstance(node, ast.AnnAssign):
            out[node.target.id] = None
        elif isinstance(node, ast.Assign):
            out.update((t.id, None) for t in node.targets)
    return out


def public(obj):
    return {n for n in dir(obj) if not n.startswith("_")}


def test_stub_and_module_name_the_same_things():
    stub = names(ast.parse(STUB.read_text()).body)
    assert set(stub) - HELPERS - {"__version__"} == public(kelscan)
    for name, members in stub.items():
        if members is None or name == "Error":
            continue
        cls = getattr(kelscan, name)
        inherited = set().union(*(public(b) for b in cls.__mro__[1:] if b.__module__ == "kelscan"))
        assert {m for m in members if not m.startswith("_")} == public(cls) - (inherited - set(members)), name
