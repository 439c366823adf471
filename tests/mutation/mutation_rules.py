"""Rules that change a place of C++ source text.

A rule looks at code with comments, strings, includes and static assertions blanked out and yields
(start, end, replacement) for every place that it finds.
"""

import re
import struct

from source_text import blank, calls, split_arguments, trim

SISTER_OPERATIONS = {
    "add": ["sub"],
    "sub": ["add"],
    "mul": ["add"],
    "div": ["mul"],
    "min": ["max"],
    "max": ["min"],
    "fmadd": ["fnmadd", "fmsub"],
    "fnmadd": ["fmadd", "fnmsub"],
    "and": ["andnot"],
    "andnot": ["and"],
    "or": ["and"],
    "cmplt": ["cmple", "cmpgt"],
    "cmpgt": ["cmpge", "cmplt"],
    "cmpngt": ["cmpnge", "cmple"],
    "cmpeq": ["cmpneq"],
    "sqrt": ["rsqrt"],
    "rcp": ["sqrt"],
    "unpacklo": ["unpackhi"],
    "unpackhi": ["unpacklo"],
    "movehdup": ["moveldup"],
    "cvtss": ["cvttss"],
    "cvtps": ["cvttps"],
    "packus": ["packs"],
    "subs": ["adds"],
    "srli": ["slli"],
    "slli": ["srli"],
    "xor": ["or"],
    "moveldup": ["movehdup"],
    "storeh": ["storel"],
}


def sister_operation(code):
    for match in re.finditer(r"\b_mm(?:256)?_([a-z0-9]+)_\w+(?=\()", code):
        for sister in SISTER_OPERATIONS.get(match.group(1), []):
            yield match.start(1), match.end(1), sister


SISTER_LANE_OPERATIONS = {
    "add": ["subtract"],
    "subtract": ["add"],
    "multiply": ["add"],
    "divide": ["multiply"],
    "smaller": ["larger"],
    "larger": ["smaller"],
    "equal": ["less"],
    "less": ["greater", "not_greater"],
    "greater": ["less", "equal"],
    "not_greater": ["greater", "less"],
    "both": ["either", "second_without_first"],
    "second_without_first": ["both"],
    "either": ["both"],
    "square_root": ["approximate_reciprocal"],
    "approximate_reciprocal": ["square_root"],
}


def sister_lane_operation(code):
    for match in re.finditer(r"\bLanes::(\w+)(?=\()", code):
        for sister in SISTER_LANE_OPERATIONS.get(match.group(1), []):
            yield match.start(1), match.end(1), sister


def fused_or_separate_lanes(code):
    for match, arguments, end in calls(code, "Lanes::fused_multiply_add"):
        a, b, c = (code[start:stop] for start, stop in arguments)
        yield match.start(), end, f"Lanes::add(Lanes::multiply({a}, {b}), {c})"
    for match, arguments, end in calls(code, "Lanes::add"):
        for this, other in ((0, 1), (1, 0)):
            text = code[slice(*arguments[this])]
            if text.startswith("Lanes::multiply("):
                factors, added = text[text.index("(") + 1 : -1], code[slice(*arguments[other])]
                yield match.start(), end, f"Lanes::fused_multiply_add({factors}, {added})"


def exact_or_approximate_quotient_of_lanes(code):
    for match, arguments, end in calls(code, "Lanes::(?:approximate_reciprocal|divide)"):
        texts = [code[slice(*part)] for part in arguments]
        if len(texts) == 1:
            yield match.start(), end, f"Lanes::divide(Lanes::constant(1.0F), {texts[0]})"
        else:
            quotient = f"{texts[0]}, Lanes::approximate_reciprocal({texts[1]})"
            yield match.start(), end, f"Lanes::multiply({quotient})"


def fused_or_separate(code):
    for match, arguments, end in calls(code, r"_mm(?:256)?_f(?:n?)madd_[ps]s"):
        prefix, kind = re.match(r"(_mm(?:256)?)_(f\w+)_", match.group()).groups()
        suffix = match.group()[-3:-1]
        a, b, c = (code[start:stop] for start, stop in arguments)
        product = f"{prefix}_mul_{suffix}({a}, {b})"
        yield match.start(), end, (
            f"{prefix}_add_{suffix}({product}, {c})"
            if kind == "fmadd"
            else f"{prefix}_sub_{suffix}({c}, {product})"
        )
    for match, arguments, end in calls(code, r"_mm(?:256)?_add_[ps]s"):
        prefix, suffix = match.group().split("_add_")[0], match.group()[-3:-1]
        for this, other in ((0, 1), (1, 0)):
            text = code[slice(*arguments[this])]
            if text.startswith(f"{prefix}_mul_{suffix}("):
                added = code[slice(*arguments[other])]
                factors = text[text.index("(") + 1 : -1]
                yield match.start(), end, f"{prefix}_fmadd_{suffix}({factors}, {added})"


def exact_or_approximate_quotient(code):
    for match, arguments, end in calls(code, r"_mm(?:256)?_(?:rcp|div)_[ps]s"):
        prefix, kind = re.match(r"(_mm(?:256)?)_(\w+)_", match.group()).groups()
        suffix = match.group()[-3:-1]
        texts = [code[slice(*part)] for part in arguments]
        one = f"{prefix}_set{'1' if prefix == '_mm256' else ''}_{suffix}(1.0F)"
        if kind == "rcp":
            yield match.start(), end, f"{prefix}_div_{suffix}({one}, {texts[0]})"
        else:
            yield match.start(), end, (
                f"{prefix}_mul_{suffix}({texts[0]}, {prefix}_rcp_{suffix}({texts[1]}))"
            )


COMPARISONS = {
    "NGE_UQ": ["NGT_UQ", "GE_OQ", "LT_OQ"],
    "NGT_UQ": ["NGE_UQ", "GT_OQ", "LE_OQ"],
    "GT_OQ": ["GE_OQ", "LT_OQ", "NLE_UQ"],
    "LT_OQ": ["LE_OQ", "GT_OQ"],
    "EQ_OQ": ["NEQ_UQ", "EQ_UQ"],
    "ORD_Q": ["UNORD_Q"],
    "NEQ_UQ": ["EQ_OQ", "NEQ_OQ"],
}


def comparison_predicate(code):
    for match in re.finditer(r"_CMP_([A-Z]+_[A-Z]+)", code):
        for sister in COMPARISONS.get(match.group(1), []):
            yield match.start(1), match.end(1), sister


def immediate(code):
    for match, arguments, _ in calls(code, "_MM_SHUFFLE"):
        for start, end in arguments:
            yield start, end, str((int(code[start:end]) + 1) % 4)
    for match in re.finditer(r"\b0x([0-9A-F]{2})\b", code):
        for change in (0x01, 0x10, 0x33):
            yield match.start(), match.end(), f"0x{int(match.group(1), 16) ^ change:02X}"
    for match in re.finditer(r"\b0b([01]{8})\b", code):
        for bit in (0, 3, 4, 7):
            yield match.start(), match.end(), f"0b{int(match.group(1), 2) ^ 1 << bit:08b}"


def neighbouring_float(code):
    """Constants by one unit in the last place."""
    for match in re.finditer(r"\b0x([0-9A-F]{8})\b", code):
        for step in (-1, 1):
            yield match.start(), match.end(), f"0x{int(match.group(1), 16) + step:08X}"
    for match in re.finditer(r"\b(\d+\.\d+)F", code):
        if float(match.group(1)) == 0:
            yield match.start() - (code[match.start() - 1] == "-"), match.end(), "0.0F"
            continue
        bits = struct.unpack("<I", struct.pack("<f", float(match.group(1))))[0]
        for step in (-1, 1):
            neighbour = struct.unpack("<f", struct.pack("<I", bits + step))[0]
            yield match.start(), match.end(), neighbour.hex() + "F"


COMMUTATIVE = r"_mm(256)?_(add|mul|and|or|cmpeq)_|Lanes::(add|multiply|both|either|equal)$"
EXCHANGEABLE = r"[A-Za-z_][\w:]*"
NOT_A_CALL = (
    "if|for|while|switch|constexpr|catch|requires|decltype|sizeof|_MM_SHUFFLE|__attribute__"
)
DECLARATION = re.compile(r"\bconst\b|^\w[\w:<>]*\s*[&*]*\s+[&*]*\w+$|\btypename\b")


def exchanged_neighbours(code):
    """Neighbouring arguments of a call or elements of a braced list."""

    def exchange(parts):
        texts = [code[slice(*part)] for part in parts]
        if any(DECLARATION.search(text) or not text for text in texts):
            return
        for left, right in zip(range(len(parts)), range(1, len(parts))):
            if texts[left] != texts[right]:
                (start, stop), (begin, end) = parts[left], parts[right]
                yield start, end, texts[right] + code[stop:begin] + texts[left]

    for match, arguments, _ in calls(code, EXCHANGEABLE):
        name = match.group(1)
        if re.fullmatch(NOT_A_CALL, name) or re.match(COMMUTATIVE, name):
            continue
        last = 3 if re.match(r"_mm256_(cmp|blend|permute)", name) else len(arguments) + 1
        yield from exchange(arguments[: last - 1])
    for match in re.finditer(r"\{", code):
        elements, closing = split_arguments(code, match.start())
        if len(elements) > 1 and ";" not in code[match.start() : closing]:
            yield from exchange(elements)


FLAG = r"(?:Same|Want)_\w+"


def exchanged_flags(code):
    for match in re.finditer(rf"(?<!typename )\b({FLAG})(,\s+)(?=({FLAG}))", code):
        left, comma, right = match.groups()
        yield match.start(), match.end() + len(right), right + comma + left


def integer_by_one(code):
    for match in re.finditer(r"(?<![\w.])(\d+)(?=U?\b(?!\.))(?!')", lists_blanked(code)):
        number = int(match.group(1))
        yield match.start(), match.end(), str(number + 1)
        if number > 0:
            yield match.start(), match.end(), str(number - 1)


INDEX_LIST = r"= Vector_data_indices_avx2<[^>]*>"


def lists_blanked(code):
    """Without what index_list_entry and immediate change."""
    return blank(rf"{INDEX_LIST}|_MM_SHUFFLE\([^)]*\)", code)


def index_list_entry(code):
    """Every place of a list once, spread over the lists."""
    for number, index_list in enumerate(re.finditer(INDEX_LIST, code)):
        for place, entry in enumerate(re.finditer(r"\b\d+\b", index_list.group())):
            if (place + number) % 4 == 2:
                start = index_list.start() + entry.start()
                changed = str((int(entry.group()) + 1) % 12)
                yield start, start + len(entry.group()), changed


def negated_condition(code):
    for match in re.finditer(r"\b(?:if|while)(?: constexpr)? \(", code):
        _, closing = split_arguments(code, match.end() - 1)
        yield match.end(), closing, f"!({code[match.end():closing]})"


REPLACED_OPERATORS = {
    " == ": " != ",
    " != ": " == ",
    " || ": " && ",
    " && ": " || ",
    " < ": " <= ",
    " <= ": " < ",
    " > ": " >= ",
    " + ": " - ",
    " - ": " + ",
    " * ": " + ",
    " >> ": " << ",
    " += ": " -= ",
}


def replaced_operator(code):
    for match in re.finditer(r" (?:==|!=|\|\||&&|<=?|>|\+|-|\*|>>|\+=) (?=\S)", code):
        yield match.start(), match.end(), REPLACED_OPERATORS[match.group()]
    for match in re.finditer(r"(\+\+|--)(?=\w)", code):
        yield match.start(), match.end(), "--" if match.group() == "++" else "++"
    for match in re.finditer(r"(?<=[(= ])!(?=\w)", code):
        yield match.start(), match.end(), ""
    for match in re.finditer(r" \? ((?:[^;?]|::)+?)(\s+: )([^;?]+?)(?=;)", code):
        yield match.start(1), match.end(3), match.group(3) + match.group(2) + match.group(1)


def negated_boolean(code):
    for match in re.finditer(r"\b(?:std::)?(true|false)(_type)?\b", code):
        yield match.start(1), match.end(1), "false" if match.group(1) == "true" else "true"


def exchanged_matrix(code):
    for match in re.finditer(r"matrices\.(even|odd)_row_(even|odd)_column", code):
        for group in (1, 2):
            other = "odd" if match.group(group) == "even" else "even"
            yield match.start(group), match.end(group), other


SISTER_NAMES = {
    "s0": "s1",
    "s1": "s2",
    "s2": "s1",
    "azimuth": "dolp",
    "dolp": "azimuth",
    "horizontal": "vertical",
    "vertical": "diagonal",
    "diagonal": "own",
    "s2_over_s1": "s1_over_s2",
    "s1_over_s2": "s2_over_s1",
    "y_over_x": "minus_x_over_y",
    "minus_x_over_y": "y_over_x",
    "base": "side",
    "side": "base",
    "maximum_output_value": "maximum_input_value",
    "maximum_input_value": "maximum_output_value",
    "first": "second",
    "second": "first",
    "height": "width",
    "width": "height",
    "last_column": "last_row",
    "last_row": "last_column",
    "height_is_even": "width_is_even",
    "width_is_even": "height_is_even",
    "low": "high",
    "high": "low",
    "beside": "column",
    "below": "row",
    "even": "odd",
    "odd": "even",
    "next_even": "even",
    "minuend": "subtrahend",
    "columns": "next_columns",
    "next_columns": "columns",
    "own_odd": "vertical_odd",
    "vertical_odd": "own_odd",
    "half_turn": "quarter_turn",
    "quarter_turn": "half_turn",
    "half_pi_constant": "pi_constant",
    "pi_constant": "half_pi_constant",
    "Phase_0_indices": "Phase_1_indices",
    "Phase_1_indices": "Phase_3_indices",
    "Phase_2_indices": "Phase_1_indices",
    "Phase_3_indices": "Phase_2_indices",
}
NAMED_PLANE = (
    r"(?<=want_)(?:s[012]|azimuth|dolp)\b|(?<=needs_)s[012]\b"
    r"|\b(?:s[012]|azimuth|dolp)(?=_image\b|_of\b|_operand\b)"
)

DECLARED_NAME = re.compile(r"(bool |bool const |\*\s*const |constexpr \w+ )\w*$")


def sister_name(code):
    """A name where it is used, replaced by a similar one."""
    longest_first = "|".join(sorted(SISTER_NAMES, key=len, reverse=True))
    used = rf"(?<![\w*&>] )\b(?:{longest_first})\b(?! =|_)"
    for match in re.finditer(f"{NAMED_PLANE}|{used}", code):
        if not DECLARED_NAME.search(code[: match.start()]):
            yield match.start(), match.end(), SISTER_NAMES[match.group()]


DROPPABLE = re.compile(
    r"(\+\+|--|(?!\[)[\w.\->:\[\]*]+(<[^;{}]*?>)?\s*(=|\+=|\()"
    r"|return;|std::lock_guard|auto const record)"
)


def dropped_statement(code):
    depth, start = 0, 0
    for position, character in enumerate(code):
        if character in "([":
            depth += 1
        elif character in ")]":
            depth -= 1
        elif character in "{}" and depth == 0:
            start = position + 1
        elif character == ";" and depth == 0:
            begin, _ = trim(code, (start, position))
            # Declarations outside functions are not indented, or not statements.
            if code[begin - 4 : begin].isspace() and DROPPABLE.match(code, begin, position + 1):
                yield begin, position + 1, ";"
            start = position + 1


def changed_string(code):
    for match in re.finditer(r'"[^"\n]+"', code):
        yield match.end() - 1, match.end(), '_"'


RULES = [
    sister_operation,
    sister_lane_operation,
    fused_or_separate_lanes,
    exact_or_approximate_quotient_of_lanes,
    fused_or_separate,
    exact_or_approximate_quotient,
    comparison_predicate,
    immediate,
    neighbouring_float,
    exchanged_neighbours,
    exchanged_flags,
    integer_by_one,
    index_list_entry,
    negated_condition,
    replaced_operator,
    negated_boolean,
    exchanged_matrix,
    sister_name,
    dropped_statement,
    changed_string,
]
