// What a view can show: the planes that its picture is made of, the table of its colours, and which
// of the scales ends them.
const analysers = ['i0', 'i45', 'i90', 'i135'];
const samples = {colours: 's0', scale: 'raw'};
const signs = {colours: 'signed', scale: 'degree'};

export const quantities = {
  s0: {planes: ['s0'], colours: 's0', scale: 's0'},
  angle: {planes: ['azimuth', 'dolp'], colours: 'angle', scale: 'degree'},
  degree: {planes: ['dolp'], colours: 'degree', scale: 'degree'},
  raw: {planes: ['raw'], ...samples},
  angle_only: {planes: ['azimuth', 'dolp'], colours: 'angle', scale: null},
  s1_s0: {planes: ['s1_s0'], ...signs},
  s2_s0: {planes: ['s2_s0'], ...signs},
  analysers: {planes: analysers, parts: analysers, ...samples},
};
for (const name of analysers) quantities[name] = {planes: [name], ...samples};

/** Pictures in a view, two in a row: most have one. */
export const parts_of = (name) => quantities[name].parts ?? [name];

/** A name of samples with what the settings say was done to them: --shift moves them down, then --dark takes off. */
export const sample_name = (name, source) => {
  const told = Object.fromEntries(source?.settings ?? []);
  const moved = told['Samples moved down by'];
  const changes = [moved ? `moved down by ${moved}` : '', (told['Dark frame'] ?? 'none') === 'none' ? '' : 'less dark level'];
  return [name, changes.filter(Boolean).join(', ')].filter(Boolean).join(' ');
};

export const is_of_samples = (name) => quantities[name].scale === 'raw';
