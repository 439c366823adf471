"""The colours of the page's pixels once more, from what the program answers."""

import base64
import json
import math

# Ends of the scales: sample units, and 1.
S0_TOP, DEGREE_TOP = 1500, 0.5
SATURATED = 1
SATURATED_COLOUR, INVALID_COLOUR = (255, 64, 160), (0, 200, 255)


def rounded(value):
    """As a browser's Math.round."""
    return math.floor(value + 0.5)


def dimmed(dolp, most):
    return rounded(min(1, dolp / (DEGREE_TOP * 65535)) * most)


def present(dolp, most):
    return most if dolp > 0 else 0


class Colours:
    """The page's colours once more, from the tables."""

    def __init__(self, answer, s0_unit):
        self.facts = json.loads(answer)
        names = ("s0", "degree", "angle", "angle_second", "signed")
        self.tables = {name: base64.b64decode(self.facts[name]) for name in names}
        self.s0_top = rounded(S0_TOP / s0_unit)

    def ramp(self, table, values, top):
        return [(table, rounded(255 * min(1, value / top))) for value in values]

    def angles(self, table, planes, level_of):
        hues, levels = self.facts["hues"], self.facts["levels"]
        for azimuth, dolp in zip(planes["azimuth"], planes["dolp"]):
            hue = rounded(((azimuth / 65535 + 0.5) % 1) * hues) % hues
            yield (table, hue * levels + level_of(dolp, levels - 1))

    def signs(self, values):
        top = DEGREE_TOP * 32767
        for value in values:
            reach = rounded(127 * min(1, abs(value) / top))
            yield ("signed", 128 + (reach if value > 0 else -reach))

    def raw_top(self, planes):
        """The least sample that at least 0.999 of them do not exceed."""
        ordered = sorted(planes)
        return max(1, ordered[max(0, math.ceil(0.999 * len(ordered)) - 1)])

    def of(self, name, planes, colours, parts=()):
        """Red, green and blue of each pixel; `parts` are planes that samples share their scale with."""
        table = "angle_second" if colours == "second" else "angle"
        if name == "s0":
            found = self.ramp("s0", planes["s0"], self.s0_top)
        elif name == "degree":
            found = self.ramp("degree", planes["dolp"], DEGREE_TOP * 65535)
        elif name.startswith("angle"):
            found = self.angles(table, planes, dimmed if name == "angle" else present)
        elif name in ("s1_s0", "s2_s0"):
            found = self.signs(planes[name])
        else:
            shared = [value for part in parts or [name] for value in planes[part]]
            found = self.ramp("s0", planes[name], self.raw_top(shared))
        return b"".join(self.tables[table][3 * i : 3 * i + 3] for table, i in found)


def marked(colours, validity, width):
    """Colours under the stripes of pixels that are not valid."""
    result = bytearray(colours)
    for i, flags in enumerate(validity):
        row, column = divmod(i, width)
        place = column + row if flags & SATURATED else column - row
        stripe = SATURATED_COLOUR if flags & SATURATED else INVALID_COLOUR
        if flags:
            result[3 * i : 3 * i + 3] = stripe if place % 4 < 2 else (0, 0, 0)
    return bytes(result)
