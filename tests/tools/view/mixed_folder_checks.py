"""Checks of a folder whose first frame is damaged and whose others differ in size."""

import os
import struct

import browser as browsers

SIZES = ((64, 48), (40, 30), (64, 48))
MESSAGE = "document.getElementById('message')"
# Red, green and blue in the first picture at a pixel of the frame, which lies around its middle.
COLOUR = """
const canvas = document.querySelector('#views canvas');
const copy = new OffscreenCanvas(canvas.width, canvas.height).getContext('2d', {willReadFrequently: true});
copy.drawImage(canvas, 0, 0);
const {zoom, centre} = state.now;
const x = canvas.width / 2 + (arguments[0] - centre[0]) * zoom;
const y = canvas.height / 2 + (arguments[1] - centre[1]) * zoom;
return [...copy.getImageData(x, y, 1, 1).data].slice(0, 3);
"""


def sample(number, row, column):
    return 1000 + 300 * number + 7 * row + 3 * column


def write_frames(folder):
    """Portable greymaps: damaged, large, small, large."""
    os.mkdir(folder)
    with open(os.path.join(folder, "frame_0.pgm"), "wb") as stream:
        stream.write(b"P5 64 48 4095\n" + bytes(100))
    for number, (width, height) in enumerate(SIZES, 1):
        places = [(row, column) for row in range(height) for column in range(width)]
        samples = [sample(number, *place) for place in places]
        with open(os.path.join(folder, f"frame_{number}.pgm"), "wb") as stream:
            stream.write(b"P5 %d %d 4095\n" % (width, height))
            stream.write(struct.pack(f">{len(samples)}H", *samples))


def check_frame(test, browser, number):
    """The frame with its size, its values and its picture, which ends where it ends."""
    width, height = SIZES[number - 1]
    browser.wait_for(f"state.now.header?.number === {number} && {MESSAGE}.hidden")
    browser.wait_for(
        f"document.getElementById('facts').textContent.startsWith('{width} × {height} pixels')"
    )
    browser.script("state.set({pointer: {row: 20, column: 30}});")
    where = f'[data-number="{number}"][data-row="20"][data-column="30"]'
    browser.wait_for(f"document.querySelector('#readout{where}') !== null")
    found = browser.value("Number(document.querySelector('#values [data-name=raw]').dataset.value)")
    test.equal(f"value in frame {number}", found, sample(number, 20, 30))
    test.equal(f"picture of {number}", browser.script(COLOUR, 30, 20) != [0, 0, 0], True)
    is_there = browser.script(COLOUR, 50, 40) != [0, 0, 0]
    test.equal(f"far corner of {number}", is_there, width > 50)


def check_mixed_folder(test, browser, program, folder):
    frames = os.path.join(folder, "frames")
    errors = os.path.join(folder, "errors")
    write_frames(frames)
    with open(errors, "wb") as stream:
        command = [program, "view", frames, "--phase", 0, "--bit-depth", 12]
        with browsers.Served(*command, errors=stream) as served:
            browser.open(f"{served.address}&views=raw&zoom=4&centre=32,24")
            browser.script("window.state = (await import('/page/state.js')).state;")
            browser.wait_for(f"!{MESSAGE}.hidden && {MESSAGE}.textContent.includes('frame_0.pgm')")
            for number in (1, 2, 3, 2):
                browser.keys("." if number > browser.value("state.now.number") else ",")
                check_frame(test, browser, number)
            # In what the small one lacks.
            browser.keys(".")
            browser.script("state.set({zoom: 32, centre: [60, 44]});")
            browser.wait_for("state.now.header.number === 3 && state.now.header.region[0] > 40")
            browser.keys(",")
            browser.wait_for(f"state.now.header.number === 2 && {MESSAGE}.hidden")
            browser.keys("Home", " ")
            browser.wait_for("!state.now.playing && state.now.header.number === 3")
            # Once more past the damaged one: it is told whenever it is wanted, and only then.
            browser.keys("Home")
            browser.wait_for(f"!{MESSAGE}.hidden && state.now.number === 0")
            browser.keys(".")
            browser.wait_for(f"{MESSAGE}.hidden && state.now.header.number === 1")
            browser.keys(",")
            browser.wait_for(f"!{MESSAGE}.hidden && state.now.number === 0")
            browser.keys(".")
            browser.wait_for(f"{MESSAGE}.hidden && state.now.number === 1")
            browser.keys("e", "Home", " ")
            browser.wait_for("!state.now.playing && state.now.header.number === 3")
            complaints = [line for line in browser.console() if "/frame?" not in line]
            test.equal("console of a folder", complaints, [])
            test.equal("exit code", served.stop(), 130)
    with open(errors, encoding="utf-8") as stream:
        lines = stream.read().splitlines()
    test.equal("lines in the terminal", len(lines), 2)
    test.equal("its name", "frame_0.pgm" in lines[0], True)
    test.equal("its end", "interrupted" in lines[1], True)
