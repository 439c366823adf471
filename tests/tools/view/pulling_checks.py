"""Checks of how the page asks for frames, with a double for the program: what is cut off, stands still,
is of another size, is gone, or was asked for ahead."""

# Answers come when `answer` gives them; a second of the page's waiting takes a hundredth where it hurries.
DOUBLES = """
const {new_state} = await import('/page/state.js');
const {start_pulling} = await import('/page/pulling.js');
const {ask_frame} = await import('/page/source.js');
const wait = setTimeout;
window.setTimeout = (run, time) => wait(run, window.hurry ? time / 100 : time);
window.turn = () => new Promise((done) => wait(done, 5));
window.asked = [];
window.in_flight = 0;
window.most_in_flight = 0;
window.fetch = (path, {signal}) => new Promise((resolve, reject) => {
  const fields = Object.fromEntries(new URLSearchParams(path.split('?')[1]));
  const one = {fields, signal, resolve, number: Number(fields.number)};
  asked.push(one);
  most_in_flight = Math.max(most_in_flight, ++in_flight);
  const ended = () => (in_flight -= one.ended ? 0 : 1, one.ended = true);
  one.answer = (response) => (ended(), resolve(response));
  signal?.addEventListener('abort', () => (ended(), reject(signal.reason)));
});
window.frame = (number, width = 100, height = 75) => {
  const header = {number, frame_width: width, frame_height: height, planes: []};
  const text = new TextEncoder().encode(JSON.stringify(header));
  const buffer = new Uint8Array(4 + text.length);
  new DataView(buffer.buffer).setUint32(0, text.length, true);
  buffer.set(text, 4);
  return new Response(buffer);
};
window.cut = (signal) => new Response(new ReadableStream({start(road) {
  road.enqueue(new Uint8Array(3));
  if (signal) signal.addEventListener('abort', () => road.error(signal.reason));
  else road.error(new TypeError('cut'));
}}));
window.numbers = () => asked.map(({number}) => number);
window.ask_frame = ask_frame;
window.begin = (fields) => {
  const state = new_state();
  Object.assign(window, {asked: [], shown: [], troubles: [], need: {region: [0, 0, 100, 75], scale: 1, planes: ['s0']}});
  Object.assign(window, {in_flight: 0, most_in_flight: 0, pulled: state});
  let changed = () => {};
  const views = {
    needed: () => need,
    show: ({header}) => {
      shown.push(header.number);
      if (header.frame_width < need.region[0]) need = {...need, region: [0, 0, header.frame_width, header.frame_height]};
    },
    on_need: (listener) => (changed = listener),
  };
  state.listen(() => changed());
  start_pulling(state, views, (refusal) => troubles.push(refusal && refusal.status));
  state.set({source: {kind: 'recording', frames: 100}, ...fields});
};
return true;
"""


def check_roads(test):
    """An answer that ends early or stands still is a refusal, which is told, and asked for again."""
    found = test.browser.script(
        """
        const kind = async (give, signal) => {
          asked = [];
          const answer = ask_frame({number: 0}, signal).then(() => 'answer', (error) => error.status ?? error.name);
          await give(asked[0]);
          return answer;
        };
        hurry = true;
        const giving_up = new AbortController();
        const found = [
          await kind((one) => one.answer(cut())),
          await kind((one) => one.answer(new Response('a page'))),
          await kind(() => {}),
          await kind((one) => one.answer(cut(one.signal))),
          await kind((one) => one.answer(new Response('no', {status: 404}))),
          await kind(() => giving_up.abort(), giving_up.signal),
          await kind((one) => one.answer(frame(0))),
        ];
        begin({number: 3});
        await turn();
        asked[0].answer(cut());
        while (asked.length < 2) await turn();
        asked[1].answer(frame(3));
        await turn();
        hurry = false;
        return [found, troubles, shown, numbers()];
    """
    )
    test.equal("roads", found[0], [0, 0, 0, 0, 404, "AbortError", "answer"])
    test.equal("a cut answer is told, and asked again", found[1:], [[0, None], [3], [3, 3]])


def check_sizes(test):
    """A frame with nothing where the last one was looked at is looked at as a whole."""
    found = test.browser.script(
        """
        begin({number: 0});
        need.region = [80, 60, 20, 15];
        const none = () => new Response('nothing there', {status: 404});
        const give = async (response) => (await turn(), asked.at(-1).answer(response), await turn());
        await give(frame(0));
        pulled.set({number: 1});
        await give(none());
        await give(frame(1, 40, 30));
        await give(frame(1, 40, 30));
        const sizes = [asked.map(({fields}) => fields.region ?? fields.scale), shown.slice(), troubles.slice()];
        // What is refused is not asked for again, until something else of it is wanted.
        pulled.set({number: 2});
        await give(none());
        await give(none());
        const count = asked.length;
        pulled.set({overlay: true});
        await turn();
        const again = asked.length - count;
        need = {...need, scale: 2};
        pulled.set({overlay: false});
        await give(frame(2));
        return [...sizes, again, asked.length - count, shown.at(-1), troubles.slice(-2), pulled.now.failed];
    """
    )
    regions = ["80,60,20,15", "80,60,20,15", "8", "0,0,40,30"]
    test.equal("requests of a smaller frame", found[:3], [regions, [0, 1, 1], [None] * 3])
    test.equal("requests of a refused one", found[3:], [0, 1, 2, [404, None], 2])


def check_gone(test):
    """A camera's frame that is gone stays as it is until the reader goes on; while it plays others come."""
    found = test.browser.script(
        """
        const fields = () => asked.map(({fields}) => fields.number ?? 'after ' + fields.after);
        const give = async (response) => (await turn(), asked.at(-1).answer(response), await turn());
        const gone = () => new Response('gone', {status: 410});
        begin({source: {kind: 'camera', frames: null}, playing: true});
        await give(frame(7));
        need = {...need, scale: 2};
        pulled.set({overlay: true});
        await give(gone());
        await give(frame(20));
        const playing = [fields(), shown.slice(), troubles.slice()];
        pulled.set({playing: false});
        need = {...need, scale: 1};
        pulled.set({overlay: false});
        await give(gone());
        need = {...need, scale: 3};
        pulled.set({overlay: true});
        await turn();
        const paused = [pulled.now.playing, fields().slice(5), shown.slice(), troubles.slice(2)];
        pulled.set({playing: true});
        await give(gone());
        await give(frame(31));
        return [playing, paused, [fields().slice(6), shown.slice(), troubles.at(-1)]];
    """
    )
    playing = [["after -1", "after 7", "7", "after -1", "after 20"], [7, 20], [None, None]]
    test.equal("gone while it plays", found[0], playing)
    test.equal("gone while it stands", found[1], [False, ["20"], [7, 20], [410]])
    test.equal("on from there", found[2], [["20", "after -1", "after 31"], [7, 20, 31], None])


def check_silence(test):
    """Who is let go early by a busy program asks again a little later; after a second the camera is silent."""
    found = test.browser.script(
        """
        const give = async (response) => (await turn(), asked.at(-1).answer(response), await turn(), await turn());
        const none = () => new Response(null, {status: 204});
        const now = performance.now.bind(performance);
        begin({source: {kind: 'camera', frames: null}, playing: true});
        await give(frame(7));
        window.hurry = true;
        await give(none());
        const early = [asked.map(({fields}) => fields.after), pulled.now.silent];
        let later = 0;
        performance.now = () => now() + later;
        await give(none());
        later = 900;
        await give(none());
        const waits = pulled.now.silent;
        await give(new Response(JSON.stringify({reception: {received: 9, incomplete: 4}})));
        const silent = [pulled.now.silent, pulled.now.reception.incomplete, asked.at(-1).fields.after];
        await give(frame(8));
        performance.now = now;
        window.hurry = false;
        return [early, waits, silent, [pulled.now.silent, pulled.now.reception], troubles.filter(Boolean)];
    """
    )
    wanted = [[["-1", "7", "7"], False], True, [True, 4, "7"], [False, None], []]
    test.equal("silence", found, wanted)


def check_ahead(test):
    """While a recording plays the next one or two frames are under way; each is used, or dropped."""
    found = test.browser.script(
        """
        const of = (number) => asked.findLast((one) => one.number === number);
        const give = async (number) => (of(number).answer(frame(number)), await turn());
        const want = async (fields) => (pulled.set(fields), await turn());
        const results = {};
        begin({number: 0, playing: true, every: true});
        await turn();
        results.begin = numbers();
        await give(1);
        await give(0);
        await want({number: 1});
        await want({number: 2});
        await give(2);
        results.every = [numbers(), shown.slice()];
        await want({number: 40});
        results.jump = [numbers(), [3, 4].map((number) => of(number).signal.aborted)];
        need = {...need, scale: 2};
        await give(40);
        const first = (number) => asked.find((one) => one.number === number);
        results.shape = [numbers().slice(-3), [41, 42].map((number) => first(number).signal.aborted)];
        await give(40);
        await want({number: 41});
        await give(41);
        await want({playing: false, every: false});
        await want({number: 42});
        await give(42);
        results.step = [numbers().slice(-3), shown.at(-1), of(43).signal.aborted, most_in_flight];
        const to = async (first, next, fields) => {
          begin({number: first, playing: true, every: true, ...fields});
          await turn();
          await give(first);
          await want({number: next});
          return numbers();
        };
        results.every_end = [await to(98, 99), await to(98, 99, {loop: true})];
        const frames = (count) => ({loop: true, source: {kind: 'recording', frames: count}});
        results.every_round = [await to(0, 0, frames(1)), await to(0, 1, frames(2)), await to(0, 1, frames(3))];
        await to(0, 1);
        await give(1);
        await want({every: false});
        await want({number: 3});
        await give(3);
        results.every_off = [numbers(), shown.slice()];

        begin({number: 0, playing: true});
        await turn();
        for (const [number, given] of [[2, 0], [4, 1], [6, 3], [7, 6], [9, 7], [12, 8]]) {
          await want({number});
          await give(given);
        }
        results.late = [numbers(), shown.slice(), most_in_flight];

        begin({number: 98, playing: true, loop: true});
        await turn();
        await give(98);
        await want({number: 99});
        await give(99);
        await want({number: 0});
        results.repeat = numbers();
        begin({number: 99, playing: true});
        await turn();
        results.end = numbers();

        begin({number: 0, playing: true});
        await turn();
        of(1).answer(new Response('broken', {status: 500}));
        await give(0);
        results.untold = troubles.slice();
        await want({number: 1});
        await give(1);
        results.again = [numbers(), shown.slice(), troubles.slice()];
        return results;
    """
    )
    wanted = {
        "begin": [0, 1],
        "every": [[0, 1, 2, 3, 4], [0, 1, 2]],
        "jump": [[0, 1, 2, 3, 4, 40, 41, 42], [True, True]],
        "shape": [[42, 40, 41], [True, True]],
        "step": [[41, 42, 43], 42, True, 3],
        "every_end": [[98, 99], [98, 99, 0, 1]],
        "every_round": [[0], [0, 1, 0], [0, 1, 2, 0]],
        "every_off": [[0, 1, 2, 3, 4], [0, 1, 3]],
        "late": [[0, 1, 3, 6, 8, 7, 10, 14], [0, 1, 3, 6, 7, 8], 2],
        "repeat": [98, 99, 0, 1],
        "end": [99],
        "untold": [None],
        "again": [[0, 1, 2, 1], [0, 1], [None, None]],
    }
    for name, value in wanted.items():
        test.equal(f"ahead: {name}", found[name], value)


def check_pulling(test):
    test.browser.open(test.address)
    test.browser.script(DOUBLES)
    for check in (check_roads, check_sizes, check_gone, check_silence, check_ahead):
        check(test)
