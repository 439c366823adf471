// The page's tools: player, held pixels and regions, keys, saving.

import {attach_held} from './held.js';
import {attach_help, attach_keys} from './keys.js';
import {attach_marks} from './marks.js';
import {attach_player} from './player.js';
import {attach_saving} from './saving.js';

/**
 * Puts the tools into the page's places for them. `page` has views, pointing and toolbar, which its
 * parts of these names have given, the `colours` of its tables, and ask_statistics({number, region}).
 */
export const attach_tools = (state, page) => {
  const place = (id) => document.getElementById(id);
  const player = attach_player(state, place('player'));
  const held = attach_held(state, page.ask_statistics, place('held'), place('timeline'));
  const saving = attach_saving(state, page, held, place('save'));
  const help = attach_help(place('keys-help'), place('keys-help-button'));
  attach_marks(state, page, held);
  attach_keys({state, player, held, saving, help, ...page});
  return {player, held, saving};
};
