"""Checks of what is held while answers of the program are late or do not come."""

import csv
import os

# Answers wait until they are let through: by the region, all at once.
SLOW_ROAD = """
window.waiting = [];
road = (number, region) => new Promise((pass, fail) => waiting.push({number, region, pass, fail}));
window.texts = () => [...document.querySelectorAll('.held-item .numbers')].map((one) => one.textContent);
window.turn = () => new Promise((resolve) => setTimeout(resolve));
"""


def check_held_on_a_slow_road(test):
    """What is held while something else is measured is measured next; what is not is saved as such."""
    test.begin()
    found = test.browser.script(
        SLOW_ROAD
        + """
        click({row: 1, column: 2});
        click({row: 3, column: 4});
        click({row: 5, column: 6});
        await turn();
        const first = waiting.splice(0).map(({region, pass}) => (pass(), region));
        await turn();
        const next = waiting.map(({region}) => region);
        return [first, next];
    """
    )
    test.equal("asked for", found, [["2,1,1,1"], ["4,3,1,1", "6,5,1,1"]])
    test.browser.keys("c")
    path = test.browser.downloaded()
    with open(path, encoding="utf-8", newline="") as stream:
        rows = list(csv.reader(stream))
    os.remove(path)
    test.equal("rows", [row[0:5] for row in rows[1:]][1], ["0", "", "Pixel 2", "4", "3"])
    test.equal(
        "numbers",
        [[bool(cell) for cell in row[7:10]] for row in rows[1:]],
        [[True] * 3] + [[False] * 3] * 2,
    )
    said = test.browser.value("document.querySelector('.said').textContent")
    test.equal("said", said, "Saved without numbers of Pixel 2, Pixel 3 in frame 0.")
    found = test.browser.script(
        """
        // One answer does not come, the other is that there is nothing.
        const later = window.setTimeout;
        window.setTimeout = (run, time) => later(run, time === 1000 ? 0 : time);
        const refusal = (status) => Object.assign(new Error(), {status});
        waiting[0].fail(refusal(0));
        waiting[1].fail(refusal(404));
        await turn();
        await turn();
        const again = waiting.splice(2).map(({region, pass}) => (pass(), region));
        await turn();
        await turn();
        window.setTimeout = later;
        return [again, waiting.length, state.now.measured];
    """
    )
    test.equal("asked for again", found, [["4,3,1,1"], 2, 0])
    test.browser.wait_for("texts()[2] && texts()[1] !== 'not measured yet'", 10)
    test.equal("refused", test.browser.value("texts()[2]"), "not to be had in this frame")
    # What was measured of another frame says of which; a smaller one has nothing there.
    test.browser.script("state.set({number: 1});")
    test.browser.wait_for("texts()[0].startsWith('frame')", 10)
    found = test.browser.value("texts()")
    test.equal("of the last frame", found, ["frame 0: 0.00°"] * 2 + ["not measured yet"])
    test.browser.script("waiting.splice(0).forEach(({pass}) => pass());")
    test.browser.wait_for("texts()[0] === '7.00°' && texts()[2] === '7.00°'", 10)
    test.browser.script("state.set({header: {number: 2, frame_width: 5, frame_height: 75}});")
    test.browser.wait_for("texts()[2] === 'not in this frame'", 10)
    found = test.browser.value("texts()")
    test.equal("of a smaller frame", found, ["frame 1: 7.00°"] * 2 + ["not in this frame"])
