"""The package as a user gets it: pip builds it into a folder of its own,
and a fresh interpreter imports it from there with the library it carries;
its version is the project's; stubs and docstrings cover the public names."""
import ast
import inspect
import os
import pathlib
import re
import subprocess
import sys

import pytest

import vexa

ROOT = pathlib.Path(__file__).resolve().parents[2]
PACKAGE = ROOT / "python" / "vexa"


def project_version():
    return re.search(r"project\(\s*vexa\s+VERSION\s+([0-9.]+)", (ROOT / "CMakeLists.txt").read_text()).group(1)


def test_version_is_the_projects():
    assert vexa.__version__ == project_version()


@pytest.mark.skipif(not os.environ.get("VEXA_CMAKE_BUILD_DIR"),
                    reason="VEXA_CMAKE_BUILD_DIR names no CMake build to reuse (CTest sets it)")
def test_pip_installs_an_importable_package(tmp_path):
    target = tmp_path / "site"
    pip = [sys.executable, "-m", "pip", "install", "--no-build-isolation", "--no-deps", "--no-index",
           "--no-cache-dir", "--disable-pip-version-check", "--quiet", "--target", str(target), str(ROOT)]
    subprocess.run(pip, check=True, cwd=tmp_path)
    names = {p.name for p in (target / "vexa").iterdir()}
    assert {"__init__.py", "__init__.pyi", "_vexa.pyi", "py.typed", "_version.py", "libvexa.so.0"} <= names
    probe = ("import sys; sys.path.insert(0, sys.argv[1]); import vexa; "
             "print(vexa.__version__, vexa.__file__, vexa.Expression('2*x', 'x')(x=3)); "
             "print([l.split()[-1] for l in open('/proc/self/maps') if 'libvexa' in l][0])")
    env = {k: v for k, v in os.environ.items() if k != "PYTHONPATH"}
    # -I: neither PYTHONPATH, the user's site nor the working folder
    out = subprocess.run([sys.executable, "-I", "-c", probe, str(target)], check=True, env=env,
                         capture_output=True, text=True, cwd=tmp_path).stdout.split()
    assert out[0] == project_version() and out[2] == "6.0"
    assert out[1].startswith(str(target)) and out[3].startswith(str(target))


def public_api():
    yield from ((name, getattr(vexa, name)) for name in vexa.__all__ if name != "__version__")
    for name, member in vars(vexa.Expression).items():
        if not name.startswith("_") or name in ("__init__", "__call__", "__str__", "__repr__", "__reduce__"):
            yield "Expression." + name, member


@pytest.mark.parametrize("name, obj", list(public_api()))
def test_public_names_have_docstrings(name, obj):
    assert inspect.getdoc(obj), f"{name} has no docstring"


def test_stubs_cover_the_public_names():
    stub = ast.parse((PACKAGE / "__init__.pyi").read_text())
    top = {n.name for n in stub.body if isinstance(n, (ast.ClassDef, ast.FunctionDef))}
    top |= {t.target.id for t in stub.body if isinstance(t, ast.AnnAssign)}
    assert set(vexa.__all__) <= top
    expression = next(n for n in stub.body if isinstance(n, ast.ClassDef) and n.name == "Expression")
    stubbed = {n.name for n in expression.body if isinstance(n, ast.FunctionDef)}
    public = {n for n in vars(vexa.Expression) if not n.startswith("_")} | {"__init__", "__call__"}
    assert public <= stubbed
    extension = ast.parse((PACKAGE / "_vexa.pyi").read_text())
    handle = next(n for n in extension.body if isinstance(n, ast.ClassDef) and n.name == "Handle")
    assert {n for n in dir(vexa._vexa.Handle) if not n.startswith("_")} <= {n.name for n in handle.body}
