"""Finding and loading the shared library, with every export's prototype."""
import ctypes
import ctypes.util
import os
import pathlib
import sys
import sysconfig

from ._header import EXPORTS


class Matrix(ctypes.Structure):
    _fields_ = [("Width", ctypes.c_int32), ("Height", ctypes.c_int32), ("WidthStep", ctypes.c_int32),
                ("Channel", ctypes.c_int32), ("Depth", ctypes.c_int32),
                ("Data", ctypes.POINTER(ctypes.c_ubyte)), ("Reserved", ctypes.c_int32)]


CTYPES = {
    "void": None, "VL_Status": ctypes.c_int32, "int32_t": ctypes.c_int32, "double": ctypes.c_double,
    "unsigned char": ctypes.c_uint8, "uint8_t": ctypes.c_uint8, "void*": ctypes.c_void_p,
    "const unsigned char*": ctypes.c_void_p, "unsigned char*": ctypes.c_void_p,
    "int32_t*": ctypes.c_void_p, "const Matrix*": ctypes.POINTER(Matrix),
    "Matrix*": ctypes.POINTER(Matrix), "Matrix**": ctypes.POINTER(ctypes.POINTER(Matrix)),
}

SONAME = "libvelomar.so.0"


def candidates():
    """Where the library is looked for, in order: VELOMAR_LIBRARY (a path; no
    fallback when it is set), next to the package, the dynamic loader's own
    search (LD_LIBRARY_PATH, the ldconfig cache), then the lib directories of
    this Python's prefix, /usr/local and /usr."""
    env = os.environ.get("VELOMAR_LIBRARY")
    if env:
        return [env]
    here = pathlib.Path(__file__).resolve().parent
    found = [str(p) for p in sorted(here.glob("libvelomar.so*"))]
    found.append(SONAME)
    name = ctypes.util.find_library("velomar")
    if name:
        found.append(name)
    multiarch = sysconfig.get_config_var("MULTIARCH") or ""
    for prefix in dict.fromkeys([sys.prefix, sys.base_prefix, "/usr/local", "/usr"]):
        for lib in ("lib", "lib64", f"lib/{multiarch}" if multiarch else None):
            if lib:
                found.append(os.path.join(prefix, lib, SONAME))
    return list(dict.fromkeys(found))


_lib = None


def library():
    """The loaded library (a ctypes.CDLL with every export's prototype set)."""
    global _lib
    if _lib is None:
        errors = []
        for path in candidates():
            try:
                lib = ctypes.CDLL(path)
                break
            except OSError as e:
                errors.append(f"  {path}: {e}")
        else:
            raise OSError("velomar: the shared library was not found; install it (cmake --install) or set "
                          "VELOMAR_LIBRARY to libvelomar.so's path. Tried:\n" + "\n".join(errors))
        for name, (restype, params, _) in EXPORTS.items():
            if not hasattr(lib, name):
                continue  # Render: Windows only
            fn = getattr(lib, name)
            fn.restype = CTYPES[restype]
            fn.argtypes = [CTYPES[t] for t, _ in params]
        _lib = lib
    return _lib
