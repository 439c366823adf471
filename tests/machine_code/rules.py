"""What the machine code of the library has to be like. Everything that a change of the library's
build-up may want changed stands here."""

import re

from disassembly import parse

# --- Which function is what, by its demangled name.

LEAF = "var_to_template<Polarization_process_vector_avx2_callback, 0u,"
GENERATOR = "void generate_polarization_output_data_for_single_quartet<"
ROW = "void generate_quartets_of_row<"
BLOCKS = "compute_blocks<"

# --- How many there are.

INSTANCES = {
    "kernels": 2016,
    "leaves without an output": 32,
    "generators": 504,
    "rows of quartets": 252,
    "vector bodies": 504,
    "vector bodies without ratios": 248,
}


def is_part_of_another(name):
    """Compilers split rare paths off into a function of their own."""
    return "[clone .cold" in name or "[clone .part" in name


def is_leaf(name):
    return LEAF in name and "::impl<" in name


def is_generator(name):
    return GENERATOR in name


def is_row(name):
    return ROW in name


def is_blocks(name):
    return "kernel::" in name and BLOCKS in name


def flags_of(name):
    """The flags that a template was instantiated with, `same_output_range` first."""
    return [flag == "true" for flag in re.findall(r"integral_constant<bool, (true|false)>", name)]


def is_kernel(name):
    return is_leaf(name) and any(flags_of(name)[1:7])


def is_empty_leaf(name):
    return is_leaf(name) and not is_kernel(name)


def wants_normalized_stokes(name):
    return flags_of(name)[1]


def is_blocks_without_ratios(name):
    return is_blocks(name) and not wants_normalized_stokes(name)


# --- Rules for one function: each yields what is wrong.


def generator_is_straight_line_code(name, instructions):
    """Nothing that is known at compile time is tested per pixel; decisions on data are masks."""
    if is_generator(name):
        for instruction in instructions:
            if instruction.is_call or instruction.is_jump:
                yield f"leaves its straight line: {instruction}"


def weighted_pixels_use_no_x87(name, instructions):
    """x87 arithmetic rounds otherwise and obeys another control word."""
    if is_generator(name) or is_row(name):
        for instruction in instructions:
            if instruction.is_x87:
                yield f"x87 instruction: {instruction}"


def loops_of(instructions):
    """The instructions between the target of each backward jump and the jump."""
    first = instructions[0].address if instructions else 0
    for jump in instructions:
        if jump.is_jump and jump.target is not None and first <= jump.target <= jump.address:
            yield [i for i in instructions if jump.target <= i.address <= jump.address]


def block_loop_divides_only_for_ratios(name, instructions):
    """A division takes as long as a dozen multiplications; only the float plane's are defined as
    divisions."""
    if is_blocks_without_ratios(name):
        for loop in loops_of(instructions):
            for instruction in loop:
                if re.match(r"v?div[ps]s$", instruction.mnemonic):
                    yield f"division in the block loop: {instruction}"


def block_loop_tests_nothing_but_its_end(name, instructions):
    if is_blocks(name):
        for loop in loops_of(instructions):
            for instruction in loop[:-1]:
                if instruction.is_conditional_jump or instruction.is_call:
                    yield f"in the block loop: {instruction}"


def clears_upper_halves(name, instructions):
    """No way out of a function, by a return or by a jump to another function, may leave the upper
    halves of the 256-bit registers written: SSE code of the caller would pay for it with every
    instruction. Each instruction that names such a register counts as a write; what may have been
    written follows every jump, and vzeroupper ends it."""
    index_of = {instruction.address: i for i, instruction in enumerate(instructions)}
    dirty_at = set()
    todo = []
    # Reachable with clean halves is everything: only states that may be dirty are followed.
    for i, instruction in enumerate(instructions):
        if "%ymm" in instruction.operands:
            todo.append(i + 1)
    while todo:
        i = todo.pop()
        if i in dirty_at or i >= len(instructions):
            continue
        dirty_at.add(i)
        instruction = instructions[i]
        if instruction.mnemonic in ("vzeroupper", "vzeroall"):
            continue
        if instruction.is_return:
            yield f"returns with written upper halves: {instruction}"
            continue
        if instruction.is_jump:
            if instruction.target in index_of:
                todo.append(index_of[instruction.target])
            else:
                yield f"leaves with written upper halves: {instruction}"
            if not instruction.is_conditional_jump:
                continue
        todo.append(i + 1)


FUNCTION_RULES = (
    generator_is_straight_line_code,
    weighted_pixels_use_no_x87,
    block_loop_divides_only_for_ratios,
    block_loop_tests_nothing_but_its_end,
    clears_upper_halves,
)


def violations_of_function(name, lines):
    """(rule, what is wrong) for everything in a function of the library."""
    instructions = parse(lines)
    for rule in FUNCTION_RULES:
        for what in rule(name, instructions):
            yield rule.__name__, f"{what}\n    in {name}"


# --- Rules for the library as a whole.


def instances_in(functions):
    whole = [name for name in functions if not is_part_of_another(name)]
    return {
        "kernels": sum(map(is_kernel, whole)),
        "leaves without an output": sum(map(is_empty_leaf, whole)),
        "generators": sum(map(is_generator, whole)),
        "rows of quartets": sum(map(is_row, whole)),
        "vector bodies": sum(map(is_blocks, whole)),
        "vector bodies without ratios": sum(map(is_blocks_without_ratios, whole)),
    }


def every_instance_is_there(functions):
    for what, count in instances_in(functions).items():
        if count != INSTANCES[what]:
            yield "every_instance_is_there", f"{count} {what} instead of {INSTANCES[what]}"


# --- Rules for the module's objects, which run on any x86-64.

# System instructions begin with a v as well, and are no vector code.
SYSTEM_INSTRUCTION = (
    "er[rw]|m(?:call|clear|func|launch|load|mcall|ptrld|ptrst|read|resume|run|save|write|xoff|xon)"
)
VEX_ENCODED = re.compile(
    rf"v(?!(?:{SYSTEM_INSTRUCTION})$)\w+|andn|bextr|bls\w+|bzhi|mulx|pdep|pext|rorx|s[ah][lr]x"
)


def runs_on_any_processor(name, lines):
    for instruction in parse(lines):
        wide = re.search("%[yz]mm", instruction.operands)
        if wide or VEX_ENCODED.fullmatch(instruction.mnemonic):
            yield "runs_on_any_processor", f"{instruction}\n    in {name}"


def shares_no_weak_function(of_module, of_pixel_code):
    """The linker would keep one copy, and it may be the one that older processors cannot run."""
    for name in sorted(of_module & of_pixel_code):
        yield "shares_no_weak_function", f"defined in both kinds of object: {name}"
