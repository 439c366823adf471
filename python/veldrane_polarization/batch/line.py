"""Command lines: each refusal in words of this program, in one line whatever a name holds."""

from __future__ import annotations

import argparse
import re
import sys
from collections.abc import Iterable, Sequence
from typing import Any, Optional


class Usage_error(ValueError):
    """One line for a user."""


class Text:
    """A value that may be anything but empty."""

    def __init__(self, accepted: str = "a value") -> None:
        self.accepted = accepted

    def value_of(self, text: str) -> Any:
        """None where the text is none of the accepted."""
        return text


class Whole_number(Text):
    """Decimal digits alone: Python's int() takes blanks, underscores and digits of any script."""

    def __init__(self, lowest: Optional[int] = None, highest: int = (1 << 63) - 1) -> None:
        """Without a range the caller bounds the number, and says by what."""
        bounds = "" if lowest is None else f" from {lowest} to {highest}"
        super().__init__(f"a whole number{bounds} in decimal digits")
        self._range = range(-(1 << 63) if lowest is None else lowest, highest + 1)

    def value_of(self, text: str) -> Any:
        if not re.fullmatch("-?[0-9]{1,19}", text) or int(text) not in self._range:
            return None
        return int(text)


def _decimal(text: str) -> Optional[float]:
    is_number = re.fullmatch(r"-?[0-9]+(\.[0-9]+)?([eE][-+]?[0-9]{1,3})?", text)
    return float(text) if is_number else None


class Seconds(Text):
    def __init__(self) -> None:
        super().__init__("a number of seconds such as 60 or 0.5")

    def value_of(self, text: str) -> Any:
        return _decimal(text)


class Number(Text):
    def __init__(self, least: float, most: float) -> None:
        super().__init__(f"a decimal number from {least} to {most}")
        self._least, self._most = least, most

    def value_of(self, text: str) -> Any:
        number = _decimal(text)
        return number if number is not None and self._least <= number <= self._most else None


class One_of(Text):
    """Names, upper and lower case alike."""

    def __init__(self, names: Iterable[str]) -> None:
        self._names = {name.lower(): name for name in names}
        super().__init__("one of " + ", ".join(self._names.values()))

    def value_of(self, text: str) -> Any:
        return self._names.get(text.lower())


class _Value(argparse.Action):
    """Where the text of each argument with a value ends up, before argparse has words for it."""

    def __init__(self, *arguments: Any, kind: Optional[Text] = None, **more: Any) -> None:
        super().__init__(*arguments, **more)
        self.kind = kind or Text()

    def __call__(
        self,
        parser: argparse.ArgumentParser,
        namespace: argparse.Namespace,
        values: Any,
        option_string: Optional[str] = None,
    ) -> None:
        name = option_string or str(self.metavar)
        given = namespace.__dict__.setdefault("given", set())
        if self.dest in given:
            raise Usage_error(f"{name} is given twice; give it once")
        given.add(self.dest)
        # argparse takes -- away wherever it is, which leaves a list of nothing.
        text = values if isinstance(values, str) else "--"
        if not text.strip():
            raise Usage_error(f"{name} is empty; give {self.kind.accepted}")
        value = self.kind.value_of(text)
        if value is None:
            raise Usage_error(f"{name} is {_shown(text)}; give {self.kind.accepted}")
        setattr(namespace, self.dest, value)


class Line_parser(argparse.ArgumentParser):
    """Arguments take a `kind` in place of argparse's types and choices."""

    def __init__(self, **more: Any) -> None:
        super().__init__(**more, allow_abbrev=False, exit_on_error=False)
        self.register("action", None, _Value)
        self.register("action", "store", _Value)

    def parse_line(self, arguments: Optional[Sequence[str]]) -> argparse.Namespace:
        words = sys.argv[1:] if arguments is None else list(arguments)
        positions = self._get_positional_actions()
        for action in positions:
            action.required = False  # argparse would say so before it looks at other faults
        try:
            line, others = self.parse_known_args(words)
        except argparse.ArgumentError as error:
            raise Usage_error(self._told(error, words)) from None
        if others:
            raise Usage_error(
                f"{_shown(others[0])} is no argument of this command; --help tells all options"
            )
        for action in positions:
            if getattr(line, action.dest) is None and isinstance(action, _Value):
                raise Usage_error(f"{action.metavar} is missing; give {action.kind.accepted}")
        return line

    def _told(self, error: argparse.ArgumentError, words: Sequence[str]) -> str:
        """What is left for argparse to refuse: an option without its value, or a flag with one."""
        for action in self._get_optional_actions():
            if error.argument_name != "/".join(action.option_strings):
                continue
            if isinstance(action, _Value):
                return f"{error.argument_name} has no value; give {action.kind.accepted}"
            name = max(action.option_strings, key=len)
            given = next(
                (
                    word
                    for word in words
                    if word.startswith(name + "=")
                    or (word[:2] in action.option_strings and word[2:])
                ),
                name,
            )
            return f"{_shown(given)} has a value where none belongs; give {name} alone"
        return f"{error.argument_name} cannot be understood; --help tells all options"


def _shown(text: str) -> str:
    return text if re.fullmatch(r"[\w.,:/=+-]+", text) else repr(text)


def printable(text: str) -> str:
    """In one line, with nothing that a terminal obeys; bytes that are no UTF-8 as \\xff."""
    return "".join(sign if sign.isprintable() else _escaped(sign) for sign in text)


def _escaped(sign: str) -> str:
    if "\udc80" <= sign <= "\udcff":  # how Python holds such a byte of a name
        return f"\\x{ord(sign) - 0xDC00:02x}"
    return sign.encode("unicode_escape").decode()
