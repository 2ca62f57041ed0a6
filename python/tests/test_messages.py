"""What Python hands in and what it is told: the library's causes with their
place in the text, every name a text can contain in params (in the host's
order), and texts with the white space of files and editors."""
import warnings

import numpy as np
import pytest

import vexa

# text, params, values, strict, entry, what the message says, character of the cause
# (the library's causes are tested in C++; here each entry and the conversion
# of byte offsets into characters)
CAUSES = [
    ("1/x", "x", (0.0,), True, "call", "division by zero in '1/x'", 1),
    # characters, not bytes: the braced name before holds a two-byte one
    ("{ü}*0 + 1/x", "x,{ü}", (0.0, 1.0), True, "call", "division by zero in '1/x'", 9),
    ("1 + SQRT(x)", "x", (-1.0,), False, "call", "which leaves the operator '+' without its right operand", 4),
    ("LOG(x) + 5", "x", (-1.0,), True, "call", "strict evaluation: 'LOG(x)' has no value: LOG refuses (-1)", 0),
    ("v + x", "v,x", (np.array([1.0, 2.0, 3.0]), 2.0), True, "evaluate",
     "the operator '+' in 'v + x' cannot combine 1 x 3 and a number", 2),
    ("x*x + 1/x", "x", (0.0,), True, "gradient", "division by zero in '1/x'", 7),
]

ENTRY = {
    "call": lambda e, values: e(*values),
    "evaluate": lambda e, values: e.evaluate(*values),
    "gradient": lambda e, values: e.gradient(*values),
}


@pytest.mark.parametrize("text, params, values, strict, entry, says, position", CAUSES)
def test_a_failed_point_names_its_cause_and_place(text, params, values, strict, entry, says, position):
    e = vexa.Expression(text, params, strict=strict)
    with pytest.raises(vexa.EvaluationError) as info:
        ENTRY[entry](e, values)
    assert says in info.value.message and f"(at position {position})" in info.value.message
    assert info.value.position == position
    if entry == "call":
        # an array call's warning tells the same of its first such point
        columns = [np.array([2.0, v]) for v in values]
        with warnings.catch_warnings(record=True) as seen:
            warnings.simplefilter("always")
            got = e(*columns)
        assert np.isnan(got[1]) and not np.isnan(got[0])
        [w] = [s.message for s in seen if isinstance(s.message, vexa.EvaluationWarning)]
        assert says in w.reason and w.position == position and w.index == 1


def test_a_derivative_has_no_text_to_point_into():
    d = vexa.Expression("LOG(x)", "x").derivative("x")
    with pytest.raises(vexa.EvaluationError) as info:
        d(0.0)
    assert info.value.position == -1


def test_a_registered_function_called_with_another_count():
    vexa.register("MSGOFFS", vexa.Expression("B+A", "A,B"))
    try:
        with pytest.warns(vexa.TextWarning, match="MSGOFFS takes 2 arguments") as seen:
            e = vexa.Expression("2*MSGOFFS(x)+1", "x")
        assert seen[0].message.position == 2
        with pytest.raises(vexa.EvaluationError) as info:
            e(5.0)
        assert "MSGOFFS takes 2 arguments" in info.value.message and info.value.position == 2
        assert e(5.0, strict=False) == 11.0  # the language's own reading
        with pytest.warns(vexa.TextWarning, match="MSGOFFS takes 2 arguments") as seen:
            more = vexa.Expression("MSGOFFS(5, 1, 2, 3)")
        assert seen[0].message.position == 0 and more() == 6.0  # the language's own reading stays
    finally:
        vexa.unregister("MSGOFFS")


# text, params, the final order, values in it, the value
NAMES = [
    ("K2*X2+K1*X1", None, ["K2", "X2", "K1", "X1"], (4, 2, 3, 1), 11.0),
    ("K2*X2+K1*X1", "X1", ["X1", "K2", "X2", "K1"], (1, 4, 2, 3), 11.0),
    ("{DIST}*2+x+z", ["x", "{DIST}"], ["x", "{DIST}", "z"], (1, 2, 3), 8.0),
    ("b + T0*{V 1}", "{V 1}, T0", ["{V 1}", "T0", "b"], (2, 3, 1), 7.0),
    ("X1 - x", "\tX1 ,\u00a0x", ["X1", "x"], (5, 1), 4.0),
]


@pytest.mark.parametrize("text, params, order, values, value", NAMES)
def test_every_name_a_text_can_contain_in_the_hosts_order(text, params, order, values, value):
    e = vexa.Expression(text, params)
    assert e.params == order
    assert e(*values) == value
    assert e(**dict(zip(order, values))) == value
    many = e(*(np.full(3, v, dtype=float) for v in values))
    assert many.tolist() == [value] * 3


def test_lists_with_digits_and_braces_are_still_checked():
    with pytest.raises(ValueError, match="given twice"):
        vexa.Expression("X1+X2", "T0,{DIST},t0")


# text, values, value: white space as files and editors write it
TEXTS = [
    ("2*x\r\n+ 1", (1,), 3.0),
    ("\ufeffx\u00a0+ 1", (1,), 2.0),
    ("""
        STEP(TIME, 0, 0, 1, 10)
        * AMP
    """, (0.5, 2), 10.0),
]


@pytest.mark.parametrize("text, values, value", TEXTS)
def test_texts_with_the_white_space_of_files(text, values, value):
    e = vexa.Expression(text)
    assert e(*values) == value
    assert e.text == text


def test_a_syntax_error_in_a_multi_line_text_points_at_its_character():
    text = "2*x\n  + #"
    with pytest.raises(vexa.ParseError) as info:
        vexa.Expression(text, "x")
    assert text[info.value.position] == "#"


# text, params, what the warning says, the character it points at (None: no warning)
REVIEWED = [
    ("m*g + M*a", None, "'M' and 'm' are one parameter", 6),
    ("x\t+\t1 5", None, "'1 5' is read as the one number 15", 4),  # white space as the library reads it
    ("b + T0*{V 1}", "{V 1}, T0", None, None),  # a braced name keeps its space: nothing is joined
]


@pytest.mark.parametrize("text, params, says, position", REVIEWED)
def test_texts_read_otherwise_than_meant_warn_once_made(text, params, says, position):
    with warnings.catch_warnings(record=True) as seen:
        warnings.simplefilter("always")
        vexa.Expression(text, params)
    told = [s for s in seen if issubclass(s.category, vexa.TextWarning)]
    if says is None:
        assert told == []
        return
    [w] = told
    assert says in w.message.message and w.message.position == position
    assert w.filename == __file__
