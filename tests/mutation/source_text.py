"""C++ source text as the rules of mutants look at it: what they may touch, lists of arguments, calls."""

import re


def blank(pattern, text, flags=re.MULTILINE | re.DOTALL):
    return re.sub(pattern, lambda match: re.sub(r"[^\n]", " ", match.group()), text, flags=flags)


def code_of(source):
    """The text with everything blanked that no rule may touch; positions stay the same."""
    code = blank(r"//[^\n]*|/\*.*?\*/", source)
    code = blank(r"^#[^\n]*$", code)
    code = blank(r"static_assert\(.*?\);", code)
    # An array one longer, or a buffer's declared size, changes nothing that runs.
    code = blank(r"(?<=__m256 vector)\[\d+\]|std::array<float, 16>", code)
    return code


def without_strings(code):
    return blank(r'"[^"\n]*"', code)


def split_arguments(code, opening):
    """Positions (start, end) of the arguments of a bracketed list, and of the closing bracket."""
    closing_of = {"(": ")", "{": "}", "<": ">"}
    depth, start, parts = 0, opening + 1, []
    for position in range(opening, len(code)):
        character = code[position]
        if character in "({[" or (character == "<" and code[opening] == "<"):
            depth += 1
        elif character in ")}]" or (character == ">" and code[opening] == "<"):
            depth -= 1
            if depth == 0:
                if character != closing_of[code[opening]]:
                    return [], position
                parts.append((start, position))
                return [trim(code, part) for part in parts], position
        elif character == "," and depth == 1:
            parts.append((start, position))
            start = position + 1
    return [], len(code)


def trim(code, part):
    start, end = part
    while start < end and code[start].isspace():
        start += 1
    while end > start and code[end - 1].isspace():
        end -= 1
    return start, end


def calls(code, names):
    """Calls of functions that match the pattern: (match, arguments, end of the call)."""
    for match in re.finditer(rf"\b({names})\(", code):
        arguments, closing = split_arguments(code, match.end() - 1)
        if arguments and arguments[0][0] < arguments[0][1]:
            yield match, arguments, closing + 1
