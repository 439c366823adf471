"""Checks of single modules of the page: addresses, what is played, charts, names of samples."""


def check_address(test):
    """What is written is read again, and what no page has written is left out."""
    found = test.browser.script(
        """
        const {from_fragment, short_name, to_fragment} = await import('/page/state.js');
        const {placed} = await import('/page/geometry.js');
        const face = String.fromCodePoint(0x1f600);
        const start = from_fragment('');
        const set = {...start, views: ['s1_s0'], zoom: 1.5, centre: [10.25, 3], map: 'second', s0_top: 4000,
            degree_top: 0.3, raw_top: 900, overlay: true, loupe: false, number: 17, playing: true, speed: 0.25, every: true,
            loop: true, held: [{row: 3, column: 5, name: 'a;b~c, 100 % é'}, {region: [1, 2, 3, 4], name: ''}]};
        const written = to_fragment(set).replaceAll(',', '%2C').replaceAll(';', '%3B');
        const bad = ['views=s0,s0', 'views=constructor', 'views=', 'zoom=-1', 'zoom=1e9', 'zoom=NaN', 'centre=1',
            'centre=a,b', 'map=x', 's0_top=0', 'degree_top=2', 'overlay=2', 'number=-1', 'number=1.5', 'speed=3',
            's0_top=1e-9', 'degree_top=1e-200', 'held=1', 'held=1,2,0,4', 'held=1,2~%', 'views=%', '__proto__=1', 'token=abc', '=', 'number'];
        return [to_fragment(start), JSON.stringify(from_fragment('#' + to_fragment(set))) === JSON.stringify(set),
                bad.filter((text) => to_fragment(from_fragment('#' + text)) !== ''),
                from_fragment('#held=' + Array(20).fill('1,2').join(';')).held.length,
                short_name(String.fromCharCode(0xd83d) + face.repeat(50)) === face.repeat(40),
                placed({width: 200, height: 100}, {zoom: 2, centre: [1e300, -5]}, {width: 30, height: 20}),
                JSON.stringify(from_fragment(written)) === JSON.stringify(set)];
    """
    )
    test.equal("addresses", found[:4], ["", True, [], 8])
    test.equal("long name", found[4], True)
    test.equal("separators written with per cent signs", found[6], True)
    test.equal("centre elsewhere", found[5], {"zoom": 2, "left": 40, "top": 50})
    test.begin("#views=degree&zoom=3&number=12&held=5,6~spot;10,20,30,40&map=second")
    test.equal("number", test.state("number"), 12)
    test.equal("held", test.state("held[0]"), {"row": 6, "column": 5, "name": "spot"})
    test.equal("region", test.state("held[1].region"), [10, 20, 30, 40])
    test.browser.script("state.set({number: 13, views: ['s0']});")
    test.browser.wait_for(
        "location.hash === '#views=s0&zoom=3&map=second&number=13&held=5,6~spot;10,20,30,40'"
    )
    test.browser.script(
        "await new Promise((done) => {"
        "  addEventListener('hashchange', () => setTimeout(done), {once: true});"
        "  location.hash = '#held';"
        "});"
    )
    test.equal("state after a foreign fragment", test.state("held.length"), 2)
    test.browser.script("location.hash = '#number=20&zoom=2';")
    test.browser.wait_for("state.now.number === 20 && state.now.held.length === 0")
    test.browser.script("location.hash = '#number=999';")
    test.browser.wait_for("state.now.number === 499 && location.hash === '#number=499'")


def check_player_choices(test):
    """Which frame is next, without a clock."""
    found = test.browser.script(
        """
        const {due_time, frame_after, frames_due, next_frame} = await import('/page/player.js');
        const now = (more) => ({number: 0, speed: 1, every: false, loop: false, source: {frames: 10, rate: 100}, ...more});
        const anchor = {time: 1000, number: 0};
        const next = (more, time, shown) => {
          const {number, ended} = next_frame(now(more), {...anchor, number: more.number ?? 0}, time, shown);
          return [number, ended];
        };
        return [
          frame_after(8, 5, 10, false), frame_after(8, 5, 10, true), frame_after(0, -1, 10, true),
          frame_after(0, -1, 10, false), frames_due(anchor, 1026, 100), frames_due(anchor, 1025, 100),
          frames_due(anchor, 900, 100), due_time(anchor, 1008, 100), due_time(anchor, 1016, 100), due_time(anchor, 1035, 100),
          next({}, 1005, true), next({}, 1035, false), next({speed: 2}, 1035, true), next({speed: 0.125}, 1085, true),
          next({every: true}, 1035, true), next({every: true}, 1035, false), next({every: true}, 1005, true),
          next({number: 9}, 1035, true), next({number: 9}, 1035, false), next({number: 9, loop: true}, 1010, true),
          next({number: 9, every: true}, 1010, true), next({}, 5000, true),
          next({source: {frames: 1000, rate: null}}, 2000, true),
        ];
    """
    )
    wanted = [9, 3, 9, 0, 3, 2, 0, 1010, 1010, 1025]
    wanted += [[0, False], [3, False], [7, False], [1, False], [1, False], [0, False], [0, False]]
    wanted += [[9, True], [9, False], [0, False], [9, True], [9, False], [30, False]]
    test.equal("choices", found, wanted)
    # Ten seconds of a screen that is drawn at 60 Hz, give or take 1.6 ms.
    found = test.browser.script(
        """
        const {due_time, next_frame} = await import('/page/player.js');
        return [15, 24, 30, 60].map((rate) => {
          const now = {number: 0, speed: 1, every: true, loop: false, source: {frames: 1000, rate}};
          let anchor = {time: 0, number: 0};
          for (let picture = 1; picture <= 600; ++picture) {
            const time = (picture * 1000) / 60 + 0.8 * (((7 * picture) % 5) - 2);
            const {number} = next_frame(now, anchor, time, true);
            if (number === now.number) continue;
            anchor = {time: due_time(anchor, time, rate), number};
            now.number = number;
          }
          return now.number;
        });
    """
    )
    test.equal("frames in ten seconds, every one shown", found, [150, 240, 300, 600])


def check_charts(test):
    found = test.browser.script(
        """
        const {extent_of, lines_of, lines_with_extent, most_points, new_record, places_of, thinned, turned} =
            await import('/page/charts.js');
        const frame = (number, mean) => ({number, of: {a: {mean, histogram: {}}}});
        const frames = [frame(0, 170), frame(1, 178), frame(2, 4), frame(3, null), frame(4, 9), frame(6, 100)];
        const record = new_record();
        const forgotten = [];
        for (let number = 0; number < most_points + 500; ++number) {
          record.add(frame(number, number));
          if (number === most_points - 1 || number === most_points) forgotten.push(record.has_forgotten());
        }
        record.add(frame(10, 1));
        const numbers = record.in_order().map((one) => one.number);
        const places = places_of({from: 0, to: 100, least: 0, largest: 1}, 290, 126);
        return [lines_of(frames, 'a', 180), lines_of(frames, 'a').length, lines_of(frames, 'b'),
                extent_of([[[3, 5]], [[7, 5]]]), extent_of([]), numbers.length, numbers[0], numbers[1], record.last().number,
                [places.x(50), places.y(1), places.number(places.x(31))],
                thinned([[0, 5], [1, 1], [2, 9], [3, 4], [4, 6], [12, 7]], (number) => number / 10),
                [record.at(600).thin, 'histogram' in record.at(600).of.a, record.at(most_points + 499).thin,
                 'histogram' in record.at(10).of.a],
                forgotten, most_points,
                [[{frames: frames.slice(0, 5)}], [{frames: [10, 80, 100, 170].map((mean, number) => frame(number, mean))}], [{frames: frames.slice(5)}, {frames: [frame(0, 60)]}]]
                    .map((series) => lines_with_extent(series, 'a', 180)),
                lines_with_extent([{frames: []}], 'a', 180),
                turned({from: 0, to: 180, counts: [1, 2, 3, 4, 5, 6]}), turned({from: 0, to: 180, counts: [1, 2, 3]})];
    """
    )
    test.equal(
        "lines of an angle", found[0], [[[0, 170], [1, 178]], [[2, 4]], [[4, 9]], [[6, 100]]]
    )
    test.equal("other lines", found[1:3], [2, []])
    test.equal("extent", found[3:5], [{"from": 3, "to": 7, "least": 4.995, "largest": 5.005}, None])
    test.equal("record", found[5:9], [found[13], 10, 501, 10])
    test.equal("forgotten", found[12], [False, True])
    # Around 0 they stay together; those of all directions, and those far from 0, are as they are.
    around, whole, apart = found[14]
    test.equal("lines around 0", around["all"], [[[[0, 170], [1, 178], [2, 184]], [[4, 189]]]])
    extent = {"from": 0, "to": 4, "least": 170, "largest": 189}
    test.equal("extent around 0", around["extent"], extent)
    wanted = [[[[0, 10], [1, 80], [2, 100], [3, 170]]]]
    test.equal("lines all round", whole["all"], wanted)
    test.equal("lines far from 0", apart["all"], [[[[6, 100]]], [[[0, 60]]]])
    test.equal("no lines", found[15], None)
    turned = {"from": 90, "to": 270, "period": 180, "counts": [4, 5, 6, 1, 2, 3]}
    test.equal("turned", found[16], turned)
    test.equal("turned by less", found[17]["from"], 60)
    test.equal("places", found[9], [164, 8, 31])
    test.equal("thinned", found[10], [[0, 5], [1, 1], [2, 9], [4, 6], [12, 7]])
    test.equal("histograms", found[11], [True, False, None, True])


def check_density(test):
    """Each change of the screen's density is told, each time by a question about the one that holds then."""
    found = test.browser.script(
        """
        const {on_density} = await import('/page/elements.js');
        const asked = [];
        const real = window.matchMedia;
        window.matchMedia = (query) => ({addEventListener: (_, told, how) => asked.push({query, told, how})});
        let told = 0;
        on_density(() => ++told);
        asked[0].told();
        asked[1].told();
        window.matchMedia = real;
        return [told, asked.map(({query}) => query), asked.every(({how}) => how.once)];
    """
    )
    test.equal("changes of density", found, [2, ["(resolution: 1dppx)"] * 3, True])


def check_names_of_samples(test):
    """Where the samples shown are not those of the frame, their names say so."""
    found = test.browser.script(
        """
        const {sample_name} = await import('/page/quantities.js');
        const {rows_of} = await import('/page/saving.js');
        const {pixel_values} = await import('/page/readout.js');
        const source = (...settings) => ({mosaic: [[0, 135], [45, 90]], s0_unit: 1, settings});
        const plain = source(['Dark frame', 'none']);
        const dark = source(['Dark frame', 'subtracted']);
        const shifted = source(['Samples moved down by', '4 bits'], ['Dark frame', 'none']);
        const both = source(['Samples moved down by', '4 bits'], ['Dark frame', 'subtracted']);
        const value = (source) => pixel_values({raw: [7]}, 0, {row: 1, column: 0}, source)[5][1];
        const heading = (source) => rows_of([], source)[0].find((name) => name.startsWith('raw '));
        return [[plain, dark, shifted, both].map((one) => sample_name('Samples', one)), [plain, dark].map(value), [plain, dark].map(heading)];
    """
    )
    wanted = ["Samples", "Samples less dark level", "Samples moved down by 4 bits"]
    test.equal("names", found[0], [*wanted, "Samples moved down by 4 bits, less dark level"])
    test.equal("value", found[1], ["Sample, analyser 45°", "Sample less dark level, analyser 45°"])
    test.equal("heading", found[2], ["raw mean", "raw less dark level mean"])


def check_texts(test):
    """Angles are below 180 degrees, a frame is named once, and frames that play are told of ten times a second."""
    found = test.browser.script(
        """
        const {paced} = await import('/page/elements.js');
        const {angle_text} = await import('/page/values.js');
        const source = {name: 'a/run.raw', kind: 'recording', width: 4, height: 2, bit_depth: 12};
        const told = (name) => facts(source, {number: 7, name, frame_width: 4, frame_height: 2});
        const {camera_line, facts} = await import('/page/toolbar.js');
        const sent = (received) => ({received, dropped: 0, lost: 0, incomplete: 4, reconnections: 0});
        const header = {camera: {...sent(7), rate: 20, latency_ms: 0.3}};
        const lines = [
          {header: null}, {header: null, silent: true, reception: sent(3)},
          {header, silent: true, reception: sent(9)}, {header, silent: false, reception: sent(9)},
        ].map(camera_line);
        const shown = [];
        const listener = paced((now) => shown.push(now.header));
        const now = {};
        for (now.header = 0; now.header < 50; ++now.header) listener(now, new Set(['header', 'measured']));
        await new Promise((done) => setTimeout(done, 150));
        const [last, count] = [shown.at(-1), shown.length];
        listener(now, new Set(['views']));
        return [[0, 32767, 32768, 65535].map((azimuth) => angle_text(azimuth, 1, 65535)), angle_text(0, 0, 65535),
                ['a/run.raw, frame 7', 'a/run.raw', 'a/7.png', 'b.raw, frame 2'].map(told),
                last, count <= 3, shown.length - count, lines];
    """
    )
    test.equal("angles", found[:2], [["90.00°", "0.00°", "0.00°", "90.00°"], "none"])
    size = "4 × 2 pixels · 12 bits · frame 7"
    test.equal("facts", found[2], [size, size, f"{size} · a/7.png", f"{size} · b.raw, frame 2"])
    test.equal("paced", found[3:6], [50, True, 1])
    counts = "0 dropped, 0 lost, 4 incomplete"
    wanted = [
        "waiting for the first frame",
        f"waiting for the first frame · 3 received, {counts}",
        f"nothing new for a second · 9 received, {counts}",
        f"20.0 frames/s · 7 received, {counts} · 0.3 ms old",
    ]
    test.equal("lines of a camera", found[6], wanted)


def check_modules(test):
    for check in (
        check_address,
        check_player_choices,
        check_charts,
        check_density,
        check_names_of_samples,
        check_texts,
    ):
        check(test)
