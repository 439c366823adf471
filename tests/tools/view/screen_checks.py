"""Checks of what keys alone do beside the pictures, and of a low screen."""

MARKS = (
    "[...document.querySelectorAll('#views .mark')].filter((one) => !one.hidden)"
    ".map(({style}) => [parseFloat(style.left), parseFloat(style.top)])"
)
CANVAS = "document.querySelector('#views canvas')"


def check_marks_of_parts(test, browser):
    """The pixel that keys point at is marked in each analyser's picture, and pictures follow it."""
    browser.script(
        "state.set({views: ['analysers'], zoom: 'fit', centre: null, held: [], pointer: null});"
        f"{CANVAS}.focus();"
    )
    browser.keys("ArrowRight", "ArrowDown")
    browser.wait_for(f"{MARKS}.length === 4")
    (left, top), (right, _), (_, bottom), last = browser.value(MARKS)
    test.near("columns", right - left, browser.value(f"{CANVAS}.clientWidth") / 2, 1)
    test.near("rows", bottom - top, browser.value(f"{CANVAS}.clientHeight") / 2, 1)
    test.equal("last mark", last, [right, bottom])
    browser.script("state.set({views: ['s0'], zoom: 40, centre: [32, 24]});")
    browser.wait_for(f"{MARKS}.length === 1")
    browser.keys(*["ArrowRight"] * 3, holding=["Shift"])
    browser.wait_for("state.now.pointer.column === 63")
    browser.wait_for(f"{MARKS}.length === 1")
    test.equal("pictures follow", browser.value("state.now.centre[0] > 50"), True)


def check_frame_field(test, browser):
    """The field of the frame's number goes to the last frame at most, and keeps no other number."""
    field = "document.querySelector('#player input[type=number]')"
    browser.script("state.set({number: 3});")
    browser.keys("g", "9", "9", "9", "Enter")
    browser.wait_for("state.now.number === 499")
    test.equal("beyond the end", browser.value(f"{field}.value"), "499")
    browser.script("document.activeElement.blur();")
    browser.keys("g", "Backspace")
    browser.script("document.activeElement.blur();")
    test.equal("emptied", browser.value(f"{field}.value"), "499")


def check_time_line_by_keys(test, browser):
    """Enter shows the frame that the time line's cursor is at; × leaves the focus in the list."""
    browser.script(
        "state.set({held: [{row: 3, column: 4, name: ''}, {row: 3, column: 5, name: ''}]});"
    )
    for number in (499, 498, 497):
        browser.script("state.set({number: arguments[0]});", number)
        browser.wait_for(f"state.now.measured === {number}")
    browser.wait_for("!document.getElementById('timeline').hidden")
    browser.script("document.querySelector('#timeline canvas').focus();")
    browser.keys("ArrowRight", "Enter")
    browser.wait_for("state.now.header.number === 498")
    test.equal("held still", browser.value("state.now.held.length"), 2)
    focused = "document.activeElement.textContent"
    for left, wanted in ((1, "×"), (0, "Hold pixel")):
        browser.script("document.querySelector('.held-item:last-child button').focus();")
        browser.keys("Enter")
        browser.wait_for(f"document.querySelectorAll('.held-item').length === {left}")
        test.equal("focus after removing", browser.value(focused), wanted)
    browser.script("state.set({number: 499});")


def check_low_screen(test, browser):
    """Pictures have room on a phone that lies on its side."""
    browser.script("state.set({views: ['s0', 'angle', 'degree', 'raw']});")
    browser.size(844, 390)
    browser.wait_for(f"{CANVAS}.clientHeight >= 120", 10)
    test.checks += 1
    browser.size(1280, 720)
