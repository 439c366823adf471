// What a view can show: the planes that its picture is made of and how it is coloured.
// `scale` names the end of its colours in the state's scales; `planes` are those of /frame.
export const quantities = [
  {id: 's0', title: 'Intensity S0', planes: ['s0'], colours: 's0', scale: 's0_top'},
  {id: 'angle_degree', title: 'Angle, dimmed by the degree', planes: ['azimuth', 'dolp'],
   colours: 'angle', scale: 'degree_top'},
  {id: 'dolp', title: 'Degree', planes: ['dolp'], colours: 'degree', scale: 'degree_top'},
  {id: 'azimuth', title: 'Angle', planes: ['azimuth', 'dolp'], colours: 'angle', scale: null},
  {id: 's1_s0', title: 'S1/S0', planes: ['s1_s0'], colours: 'signed', scale: 'degree_top'},
  {id: 's2_s0', title: 'S2/S0', planes: ['s2_s0'], colours: 'signed', scale: 'degree_top'},
  {id: 'raw', title: 'Raw mosaic', planes: ['raw'], colours: 's0', scale: 'raw_top'},
  {id: 'analysers', title: 'Four analysers', planes: ['i0', 'i45', 'i90', 'i135'],
   parts: ['i0', 'i45', 'i90', 'i135'], colours: 's0', scale: 'raw_top'},
  {id: 'i0', title: 'Analyser 0°', planes: ['i0'], colours: 's0', scale: 'raw_top'},
  {id: 'i45', title: 'Analyser 45°', planes: ['i45'], colours: 's0', scale: 'raw_top'},
  {id: 'i90', title: 'Analyser 90°', planes: ['i90'], colours: 's0', scale: 'raw_top'},
  {id: 'i135', title: 'Analyser 135°', planes: ['i135'], colours: 's0', scale: 'raw_top'},
];

const by_id = new Map(quantities.map((quantity) => [quantity.id, quantity]));

export const quantity_of = (id) => by_id.get(id);
