"""The machine code of a library or an object file as lists of instructions by function."""

import re
import subprocess
from dataclasses import dataclass

INSTRUCTION = re.compile(r"^\s*([0-9a-f]+):\t(.*)$")
FUNCTION = re.compile(r"^[0-9a-f]+ <(.+)>:$")
PREFIXES = {"bnd", "cs", "data16", "ds", "es", "lock", "notrack", "rep", "repnz", "repz", "ss"}


@dataclass(frozen=True)
class Instruction:
    address: int
    mnemonic: str
    operands: str

    @property
    def is_call(self):
        return self.mnemonic.startswith("call")

    @property
    def is_jump(self):
        return self.mnemonic.startswith("j")

    @property
    def is_conditional_jump(self):
        return self.is_jump and self.mnemonic != "jmp"

    @property
    def is_return(self):
        return self.mnemonic.startswith("ret")

    @property
    def is_x87(self):
        return self.mnemonic.startswith("f")

    @property
    def target(self):
        """The address that a direct jump leads to."""
        match = re.match(r"([0-9a-f]+)\b", self.operands)
        return int(match.group(1), 16) if match else None

    def __str__(self):
        return f"{self.address:x}: {self.mnemonic} {self.operands}".strip()


def parse(lines):
    instructions = []
    for line in lines:
        match = INSTRUCTION.match(line)
        if match is None:
            continue
        words = match.group(2).split(None, 1)
        while len(words) == 2 and words[0] in PREFIXES:
            words = words[1].split(None, 1)
        if words:
            operands = words[1] if len(words) == 2 else ""
            instructions.append(Instruction(int(match.group(1), 16), words[0], operands))
    return instructions


def output_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def functions_of(file):
    """Lines of the disassembly by demangled function name, without the linker's stubs."""
    lines_of = {}
    lines = []
    for line in output_of("objdump", "-d", "--no-show-raw-insn", file).splitlines():
        heading = FUNCTION.match(line)
        if heading:
            name = heading.group(1)
            lines = [] if name.endswith("@plt") else lines_of.setdefault(name, [])
        elif line:
            lines.append(line)
    return dict(zip(demangled(list(lines_of)), lines_of.values(), strict=True))


def demangled(names):
    done = subprocess.run(
        ["c++filt"], input="\n".join(names), check=True, capture_output=True, text=True
    )
    return done.stdout.splitlines()


def weak_functions_of(files):
    """Functions of which the linker keeps one copy for all objects."""
    names = set()
    for file in files:
        for line in output_of("nm", "--defined-only", file).splitlines():
            words = line.split()
            if len(words) == 3 and words[1] == "W":
                names.add(words[2])
    return names
