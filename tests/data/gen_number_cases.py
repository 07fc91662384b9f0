#!/usr/bin/env python3
"""Generates number_cases.txt: random KivNumber cases with results computed independently by
Python's decimal module (exact arithmetic, ROUND_HALF_UP) and fractions.

Each line is one case, fields separated by "|":
  parse|L|S|text|value|code          value after parsing into a null number of precision L, scale S
  pack|L|S|text|hex|numLen|scale|intLen
  add|L|S|a|L2|S2|b|value|code       also sub, mul, div (no remainder), mod
  divmod|L|S|a|L2|S2|b|quotient|remainder|code
  cmp|L|S|a|L2|S2|b|result
  round|L|S|a|k|value|code
  text|L|S|a|k|round|value
  pow|L|S|a|n|value|code
  setls|L|S|a|newL|newS|value|code   newL, newS may be -1 (keep)
"a" is parsed with (L, S), "b" with (L2, S2). Values are the plain text forms ("" for null).

Run from anywhere: python3 gen_number_cases.py > number_cases.txt (the seed is fixed).
"""
import random
import sys
from decimal import ROUND_HALF_UP, Context, Decimal, localcontext, setcontext
from fractions import Fraction

OVERFLOW = -2053
DIVIDE_BY_ZERO = -2046
ZERO_NEGATIVE_POWER = -2055
INVALID = 2001
NINES = Decimal("9" * 50)

CONFIGS = [(38, 8)] * 6 + [(10, 2), (20, 0), (15, 3), (38, 20), (5, 5), (3, 1), (1, 0), (60, 30),
                           (100, 50), (100, 0), (12, 12), (30, 4)]

rng = random.Random(20240601)


def ctx():
    return Context(prec=1000, Emax=10000, Emin=-10000)


def quant(value, scale):
    with localcontext(ctx()):
        return value.quantize(Decimal(1).scaleb(-scale), rounding=ROUND_HALF_UP)


def fits(value, length, scale):
    return value == 0 or abs(value) < Decimal(10) ** (length - scale)


def text(value):
    if value is None:
        return ""
    if value == 0:
        return "0"
    plain = format(value, "f")
    if "." in plain:
        plain = plain.rstrip("0").rstrip(".")
    return plain


def exponent(value):
    return value.adjusted()


def or_zero(value):
    return Decimal(0) if value is None else value


# ---- parsing, emulated from the documented scan rules ----

def parse(src, length, scale):
    """Returns (value, code); value is None for null and for errors that keep the (null) value."""
    if src == "":
        return None, 0
    i = 0
    n = len(src)
    while i < n and src[i] == " ":
        i += 1
    negative = False
    if i < n and src[i] in "+-":
        negative = src[i] == "-"
        i += 1
    while i < n and src[i] == "0":
        i += 1
    integral = ""
    fraction = ""
    point = False
    round_up = False
    stopped = False
    while i < n:
        c = src[i]
        if c.isdigit():
            if not point:
                if len(integral) >= length - scale:
                    return None, OVERFLOW
                integral += c
            elif len(fraction) == scale:
                round_up = c >= "5"
                stopped = True
                break
            else:
                fraction += c
        elif c == ".":
            if point:
                return Decimal(0), -2044
            point = True
        else:
            break
        i += 1
    if not stopped:
        while i < n and src[i] == " ":
            i += 1
        if i < n:
            return None, (-2054 if src[i] in "+-" else -2045)
    with localcontext(ctx()):
        value = Decimal((integral or "0") + "." + (fraction or "0"))
        if round_up:
            value += Decimal(1).scaleb(-scale)
        if negative:
            value = -value
    if not fits(value, length, scale):
        return None, OVERFLOW
    return (Decimal(0) if value == 0 else value), 0


def parse_ok(src, length, scale):
    value, code = parse(src, length, scale)
    assert code == 0, (src, length, scale, code)
    return value


# ---- packing, from the documented byte layout ----

def pack(value):
    if value is None:
        return ""
    if value == 0:
        return "o".encode().hex()
    digits = "".join(str(d) for d in value.normalize().as_tuple().digits)
    e = exponent(value)
    if len(digits) % 2:
        digits += "0"
    sign = -1 if value < 0 else 1
    out = [ord("n" if sign < 0 else "p"), sign * (e + 10 if e >= 0 else e - 10)]
    out += [sign * (int(digits[k:k + 2]) + 10) for k in range(0, len(digits), 2)]
    return bytes(b & 0xFF for b in out).hex()


def lengths(value):
    if value is None or value == 0:
        return 0, 0, 0
    tup = value.normalize().as_tuple()
    scale = max(0, -tup.exponent)
    e = exponent(value)
    num_len = scale + e + 1 if e >= 0 else scale
    return num_len, scale, num_len - scale


# ---- arithmetic ----

def store(value, length, scale, old):
    value = quant(value, scale)
    if not fits(value, length, scale):
        return old, OVERFLOW
    return value, 0


def add(a, b, length, scale):
    cap = length - scale
    for operand in (a, b):
        if operand is not None and operand != 0 and exponent(operand) >= cap:
            return a, OVERFLOW
    with localcontext(ctx()):
        return store(or_zero(a) + or_zero(b), length, scale, a)


def mul(a, b, length, scale):
    with localcontext(ctx()):
        return store(or_zero(a) * or_zero(b), length, scale, a)


def div_round(a, b, scale):
    quotient = Fraction(abs(a)) / Fraction(abs(b))
    truncated = int(quotient * 10 ** (scale + 1))
    last = truncated % 10
    truncated //= 10
    if last >= 5:
        truncated += 1
    result = Decimal(truncated).scaleb(-scale)
    return -result if (a < 0) != (b < 0) else result


def div(a, b, length, scale):
    if b is None or b == 0:
        return NINES, DIVIDE_BY_ZERO
    return store(div_round(or_zero(a), b, scale), length, scale, a)


def mod(a, b, length, scale):
    if b is None or b == 0:
        return NINES, DIVIDE_BY_ZERO
    with localcontext(ctx()):
        return store(or_zero(a) % b, length, scale, a)


def divmod_(a, b, length, scale):
    if b is None or b == 0:
        return NINES, None, DIVIDE_BY_ZERO
    with localcontext(ctx()):
        q = or_zero(a) // b
        r = or_zero(a) % b
    q, code = store(q, length, scale, None)
    r, code_r = store(r, length, scale, None)
    return q, r, code or code_r


def current_scale(value):
    return lengths(value)[1]


def round_(a, k, length, scale):
    if a is None or k >= current_scale(a):
        return a, 0
    return store(quant(a, k), length, scale, a)


def text_scaled(a, k, rounding):
    t = text(quant(a, k) if (rounding and a is not None) else a)
    if k > 0:
        if "." not in t:
            t += "."
        t += "0" * (k - (len(t) - t.index(".") - 1))
    if t.startswith("."):
        t = "0" + t
    return t


def pow_(a, n, length, scale):
    cap = length - scale
    if n == 0:
        one = Decimal(1)
        return (one, 0) if fits(one, length, scale) else (None, OVERFLOW)
    if a is None or a == 0:
        return (Decimal(0), ZERO_NEGATIVE_POWER) if n < 0 else (Decimal(0), 0)
    base = a
    ok = True
    if n < 0:
        base = div_round(Decimal(1), a, scale)
        ok = fits(base, length, scale)
    remaining = -n if n < 0 else n
    acc = Decimal(1)
    with localcontext(ctx()):
        while ok:
            if remaining & 1:
                acc = quant(acc * base, scale)
                ok = fits(acc, length, scale)
            remaining >>= 1
            if remaining == 0:
                break
            base = quant(base * base, scale)
            ok = ok and fits(base, length, scale)
    if not ok:
        return a, OVERFLOW
    return acc, 0


def set_length_scale(a, length, scale, new_length, new_scale):
    nl = length if new_length == -1 else new_length
    ns = scale if new_scale == -1 else new_scale
    if nl < 1 or nl > 100 or ns < 0 or ns > nl:
        return a, INVALID
    value = a
    if value is not None and ns < current_scale(value):
        value = quant(value, ns)
    integral = lengths(value)[2] if value is not None else 0
    if nl - ns < integral:
        return a, OVERFLOW
    return value, 0


# ---- random operands ----

def random_digits(count):
    return "".join(rng.choice("0123456789") for _ in range(count))


def random_number_text(length, scale, allow_overflow=False):
    cap = length - scale
    kind = rng.random()
    if kind < 0.05:
        return rng.choice(["0", "-0", "000.000", "0.0"])
    int_len = rng.randint(0, cap) if cap > 0 else 0
    if allow_overflow and rng.random() < 0.3:
        int_len = cap + rng.randint(1, 2)
    frac_len = rng.randint(0, scale)
    if rng.random() < 0.25:
        frac_len = scale + rng.randint(1, 3)
    if kind < 0.12:
        digits_int, digits_frac = "9" * int_len, "9" * frac_len
    elif kind < 0.18:
        digits_int = ("1" + "0" * (int_len - 1)) if int_len else ""
        digits_frac = "0" * max(0, frac_len - 1) + ("5" if frac_len else "")
    else:
        digits_int, digits_frac = random_digits(int_len), random_digits(frac_len)
    t = digits_int if digits_int else "0"
    if digits_frac:
        t += "." + digits_frac
    if rng.random() < 0.4:
        t = "-" + t
    return t


def operand(length, scale):
    """Text and value of a number that parses without error."""
    while True:
        t = random_number_text(length, scale)
        value, code = parse(t, length, scale)
        if code == 0:
            return t, value


def config():
    return rng.choice(CONFIGS)


def emit(*fields):
    for f in fields:
        assert "|" not in str(f) and "\n" not in str(f)
    print("|".join(str(f) for f in fields))


def mutate(t):
    choice = rng.randrange(9)
    pos = rng.randint(0, len(t))
    if choice == 0:
        return t[:pos] + rng.choice("x.+- a") + t[pos:]
    if choice == 1:
        return " " * rng.randint(1, 3) + t + " " * rng.randint(0, 3)
    if choice == 2:
        return t + rng.choice(["x", "-", "+", ".", " x", " -", ".5", "e5", "  "])
    if choice == 3:
        return t[:pos] + t[pos + 1:]
    if choice == 4:
        return "+" + t.lstrip("-")
    if choice == 5:
        return "0" * rng.randint(1, 5) + t.lstrip("-")
    if choice == 6:
        return t.replace("0.", ".", 1)
    if choice == 7:
        return "".join(rng.choice("0123456789.-+ x") for _ in range(rng.randint(1, 12)))
    return t


def main():
    # Every operation, not only those in an explicit local context, must be exact.
    setcontext(ctx())
    if hasattr(sys, "set_int_max_str_digits"):
        sys.set_int_max_str_digits(0)
    for _ in range(1400):
        length, scale = config()
        t = mutate(random_number_text(length, scale, allow_overflow=True))
        value, code = parse(t, length, scale)
        emit("parse", length, scale, t, text(value), code)
    for _ in range(350):
        length, scale = config()
        t, value = operand(length, scale)
        emit("pack", length, scale, t, pack(value), *lengths(value))
    for op, fn in (("add", add), ("sub", None), ("mul", mul), ("div", div), ("mod", mod)):
        for _ in range(450):
            length, scale = config()
            other = (length, scale) if rng.random() < 0.8 else config()
            ta, a = operand(length, scale)
            tb, b = operand(*other)
            if rng.random() < 0.03:
                tb, b = "0", Decimal(0)
            if op == "sub":
                value, code = add(a, None if b is None else -b, length, scale)
            else:
                value, code = fn(a, b, length, scale)
            emit(op, length, scale, ta, other[0], other[1], tb, text(value), code)
    for _ in range(250):
        length, scale = config()
        other = (length, scale) if rng.random() < 0.8 else config()
        ta, a = operand(length, scale)
        tb, b = operand(*other)
        q, r, code = divmod_(a, b, length, scale)
        emit("divmod", length, scale, ta, other[0], other[1], tb, text(q), text(r), code)
    for _ in range(350):
        length, scale = config()
        other = (length, scale) if rng.random() < 0.7 else config()
        ta, a = operand(length, scale)
        tb, b = operand(*other)
        if rng.random() < 0.2:
            other, tb, b = (length, scale), ta, a
        diff = or_zero(a) - or_zero(b)
        emit("cmp", length, scale, ta, other[0], other[1], tb, (diff > 0) - (diff < 0))
    for _ in range(250):
        length, scale = config()
        ta, a = operand(length, scale)
        k = rng.randint(0, scale)
        value, code = round_(a, k, length, scale)
        emit("round", length, scale, ta, k, text(value), code)
    for _ in range(300):
        length, scale = config()
        ta, a = operand(length, scale)
        k = rng.randint(0, 12)
        rounding = rng.randint(0, 1)
        emit("text", length, scale, ta, k, rounding, text_scaled(a, k, rounding))
    for _ in range(200):
        length, scale = config()
        ta, a = operand(length, scale)
        if rng.random() < 0.6:
            ta = rng.choice(["2", "-3", "1.5", "0.5", "10", "-0.2", "1.01", "0", "7.25"])
            a, code = parse(ta, length, scale)
            if code != 0:
                ta, a = operand(length, scale)
        n = rng.randint(-6, 12)
        value, code = pow_(a, n, length, scale)
        emit("pow", length, scale, ta, n, text(value), code)
    for _ in range(200):
        length, scale = config()
        ta, a = operand(length, scale)
        new_length = rng.choice([-1, rng.randint(0, 101)])
        new_scale = rng.choice([-1, rng.randint(-2, 40)])
        value, code = set_length_scale(a, length, scale, new_length, new_scale)
        emit("setls", length, scale, ta, new_length, new_scale, text(value), code)


if __name__ == "__main__":
    main()
