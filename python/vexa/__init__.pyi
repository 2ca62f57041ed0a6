from typing import Any, Callable, Dict, Iterable, List, Mapping, NamedTuple, Optional, Sequence, Tuple, Union, overload

import numpy as np
import numpy.typing as npt

__version__: str
__all__: List[str]

_Number = Union[float, int, np.floating, np.integer]
_Values = Union[_Number, npt.ArrayLike]
_Params = Union[None, str, Sequence[str]]


class VexaError(Exception):
    message: str
    code: Optional[int]
    def __init__(self, message: str, code: Optional[int] = ...) -> None: ...


class ParseError(VexaError, ValueError):
    position: int
    in_list: bool
    def __init__(self, code: int, position: int, message: str, in_list: bool = ...) -> None: ...


class EvaluationError(VexaError, ArithmeticError):
    position: int
    def __init__(self, code: Optional[int], message: str, position: int = ...) -> None: ...


class EvaluationWarning(RuntimeWarning):
    failed: int
    total: int
    index: int
    code: Optional[int]
    reason: str
    shape: Optional[Tuple[int, ...]]
    position: int
    def __init__(self, failed: int, total: int, index: int, code: Optional[int], reason: str,
                 shape: Optional[Tuple[int, ...]] = ..., position: int = ...) -> None: ...


class TextWarning(UserWarning):
    message: str
    position: int
    def __init__(self, message: str, position: int = ...) -> None: ...


class Function(NamedTuple):
    name: str
    form: str
    summary: str


class Expression:
    def __init__(self, text: str, params: _Params = ..., *, shapes: Optional[Mapping[str, Tuple[int, ...]]] = ...,
                 strict: bool = ..., threads: int = ...) -> None: ...
    @property
    def strict(self) -> bool: ...
    @strict.setter
    def strict(self, value: bool) -> None: ...
    @property
    def threads(self) -> int: ...
    @threads.setter
    def threads(self, value: int) -> None: ...
    @property
    def params(self) -> List[str]: ...
    @property
    def text(self) -> str: ...
    @property
    def shapes(self) -> Dict[str, Tuple[int, ...]]: ...
    @property
    def can_plot(self) -> bool: ...
    @overload
    def __call__(self, *args: _Number, out: None = ..., strict: Optional[bool] = ...,
                 **kwargs: _Number) -> float: ...
    @overload
    def __call__(self, *args: _Values, out: Optional[npt.NDArray[np.float64]] = ..., strict: Optional[bool] = ...,
                 **kwargs: _Values) -> Union[float, npt.NDArray[np.float64]]: ...
    def gradient(self, *args: _Values, out: Optional[npt.NDArray[np.float64]] = ..., strict: Optional[bool] = ...,
                 **kwargs: _Values) -> npt.NDArray[np.float64]: ...
    def evaluate(self, *args: _Values, strict: Optional[bool] = ...,
                 **kwargs: _Values) -> Union[float, npt.NDArray[np.float64]]: ...
    def derivative(self, param: Union[str, int], exact: bool = ...) -> "Expression": ...
    def hessian(self, *args: float, **kwargs: float) -> npt.NDArray[np.float64]: ...
    def dump(self) -> List[str]: ...
    def __reduce__(self) -> Tuple[Callable[..., "Expression"], Tuple[Any, ...]]: ...


def register(name: str, expression: Expression) -> None: ...
def unregister(name: str) -> None: ...
def registered() -> List[str]: ...
def functions() -> List[Function]: ...
