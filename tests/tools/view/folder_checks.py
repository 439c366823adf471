"""Checks of the page with a folder of three frames: a bright one, a darker one and a smaller one."""

import os
import sys

import browser

OPTIONS = ["--phase", "2", "--bit-depth", "12"]
# File, bits that are used, width, height.
FRAMES = (("0.png", 12, 67, 41), ("1.png", 10, 67, 41), ("2.png", 12, 33, 21))


def make_frames(program, folder):
    for name, bits, width, height in FRAMES:
        size = ["--width", str(width), "--height", str(height), "--bit-depth", str(bits)]
        path = os.path.join(folder, name)
        browser.run(program, "simulate", "-o", path, "--phase", "2", *size, "-q")


def set_state(page, fields):
    """In the words of the page's state."""
    page.script(f"window.state ??= (await import('/page/state.js')).state; state.set({fields});")


def begin(page, address):
    page.open(address)
    page.wait_for("document.body.dataset.state === 'ready'")
    set_state(page, "{}")
    page.wait_for("state.now.header !== null")


def check_readout(page, address):
    """There are as many loupes as pictures, also if the views change meanwhile; a smaller frame has no values."""
    begin(page, f"{address}&views=s0")
    page.script(
        "const own = window.fetch;"
        "window.fetch = async (...what) => {"
        "  const answer = await own(...what);"
        "  await new Promise((done) => setTimeout(done, 60));"
        "  return answer;"
        "};"
    )
    set_state(page, "{pointer: {row: 30, column: 40}}")
    set_state(page, "{views: ['raw', 'analysers', 'angle', 's0']}")
    ready = "document.getElementById('readout').dataset.state === 'ready'"
    page.wait_for(f"{ready} && document.querySelectorAll('#loupes figure').length === 7", 10)
    names = page.value(
        "[...document.querySelectorAll('#loupes figcaption')].map((one) => one.textContent)"
    )
    if names != ["Raw", "0°", "45°", "90°", "135°", "Angle", "S0"]:
        sys.exit(f"the loupes are called {names}")
    set_state(page, "{number: 2}")
    page.wait_for(
        "document.getElementById('place-text').textContent === 'row 30, column 40, not in this frame'"
        " && document.querySelectorAll('#values dd, #loupes figure').length === 0",
        10,
    )


ENDS = (
    "(({s0, degree, raw}) => [s0, degree, raw].join())(document.getElementById('legends').dataset)"
)


def check_scales(page, address):
    """Ends of scales are those of the frame that is shown, however one came there, and go along with the address."""
    part = "views=s0,degree,raw,angle&zoom=16&centre=9,9&loupe=0"
    found = []
    for number in (0, 1):
        begin(page, f"{address}&{part}&number={number}")
        found.append(page.value(ENDS))
    if found[0] == found[1]:
        sys.exit(f"a darker frame has the same scales: {found}")
    page.keys(",")
    page.wait_for(f"state.now.header.number === 0 && {ENDS} === '{found[0]}'", 10)
    page.keys(".")
    page.wait_for(f"state.now.header.number === 1 && {ENDS} === '{found[1]}'", 10)
    region = page.value("state.now.header.region")
    if region[2:] == [67, 41]:
        sys.exit("the whole frame is asked for where a part is seen")
    page.script("navigator.clipboard.writeText = async (text) => (window.copied = text);")
    page.keys("y")
    begin(page, page.wait_for("window.copied").replace("number=1", "number=0"))
    page.wait_for(f"state.now.header.number === 0 && {ENDS} === '{found[1]}'", 10)


def check_views(page, address):
    """Four pictures that became one are the four there were."""
    views = "i0,i45,i90,i135"
    begin(page, f"{address}&views={views}")
    page.keys("w", "q", "7", "q")
    found = page.value("[state.now.views.join(), state.now.active]")
    if found != [views.replace("i45", "s2_s0"), 1]:
        sys.exit(f"four pictures are {found} again")


def check_folder(page, program, folder):
    make_frames(program, folder)
    with browser.Served(program, "view", folder, *OPTIONS) as served:
        check_readout(page, served.address)
        check_scales(page, served.address)
        check_views(page, served.address)
        # A part of a frame that is not in a smaller one is asked for once: the browser tells of the refusal.
        complaints = [text for text in page.console() if "/frame?number=2" not in text]
        if complaints:
            sys.exit(f"the console says {complaints}")
