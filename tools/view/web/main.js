// Starts the page: asks what there is to see, then has the parts of the page show it.

import {attach_legends} from './legends.js';
import {new_painter} from './painting.js';
import {attach_pointing} from './pointing.js';
import {start_pulling} from './pulling.js';
import {attach_readout} from './readout.js';
import {ask_colours, ask_source, ask_statistics, take_token} from './source.js';
import {keep_in_address, state} from './state.js';
import {attach_toolbar} from './toolbar.js';
import {attach_tools} from './tools.js';
import {attach_views} from './views.js';

const retry_after = 1000;
const by_id = (id) => document.getElementById(id);

const sentence = ({status, message}) => {
  if (status === 0) {
    return 'The program that serves this page does not answer. Start it again, or the tunnel to it; ' +
        'the page goes on by itself, or with the new address.';
  }
  if (status === 401 || status === 403) {
    return 'This address holds no valid token. Open the whole address that the program printed when it started.';
  }
  return message || `The program refused (${status}). Load the page again.`;
};

const trouble = (refusal) => {
  const message = by_id('message');
  message.hidden = refusal === null;
  const text = refusal === null ? '' : sentence(refusal);
  if (message.textContent !== text) message.textContent = text;
  document.body.dataset.state = refusal === null ? 'ready' : 'failed';
};

const asked_until_answered = async (ask) => {
  for (;;) {
    try {
      return await ask();
    } catch (error) {
      if (error.status === undefined) throw error;
      trouble(error);
      await new Promise((resolve) => setTimeout(resolve, retry_after));
    }
  }
};

const start = async () => {
  // Its fragment would take the state's place in the address.
  document.querySelector('.skip').addEventListener('click', (event) => {
    event.preventDefault();
    by_id('readout').focus();
  });
  const has_token = take_token();
  // An address with another token, given to a page that is open, does not load it anew by itself.
  addEventListener('hashchange', ({oldURL}) => {
    if (location.hash.includes('token=') && take_token(new URL(oldURL).hash)) location.reload();
  });
  keep_in_address();
  if (!has_token) {
    trouble({status: 401});
    return;
  }
  const [colours, source] = await asked_until_answered(() => Promise.all([ask_colours(), ask_source()]));
  const painter = new_painter(colours);
  const views = attach_views(state, by_id('views'), painter);
  const pointing = attach_pointing(state, views);
  attach_readout(state, views, painter);
  attach_legends(state, views, colours, by_id('legends'));
  const toolbar = attach_toolbar(state, views);
  attach_tools(state, {views, pointing, toolbar, colours, ask_statistics});
  trouble(null);
  if (source.kind === 'camera') state.set({playing: true});
  state.set({source});
  await start_pulling(state, views, trouble);
};

start().catch((error) => {
  trouble({status: 500, message: `The page cannot go on (${error.message}). Load it again.`});
  throw error;
});
