/*
 * Lines over time. Why not a library: the collector has averaged already, so that there are some hundreds of points; what is
 * left are a few paths, which so follow the colours of the page, scale without being drawn anew, and can be read by keyboard.
 */
import { h, svg, setText } from './dom.js';
import { when } from './format.js';
import { figures, runs, times } from './scale.js';

const WIDTH = 1000, HEIGHT = 200; // of the drawing, which is stretched

function nearest(points, at, reach) {
	let best = null;

	for (const point of points)
		if (Number.isFinite(point[1]) && Math.abs(point[0] - at) <= reach && (!best || Math.abs(point[0] - at) < Math.abs(best[0] - at)))
			best = point;

	return best;
}

/*
 * `series`: [{name, points: [[at, value]], color}], times in seconds; `write` makes a figure a text; `least`, `most`: what the
 * scale holds in any case; `area`: the first series is filled to the bottom.
 */
export function lineChart({ label, series, from, to, step, write, least = Infinity, most = -Infinity, area = false, empty = 'Nothing was reported in this time.' }) {
	const values = series.flatMap(({ points }) => points.map(([ , value ]) => value)).filter(Number.isFinite);

	if (!values.length)
		return h('p', { class: 'none' }, empty);

	const ticks = figures(Math.min(least, ...extent(values, Math.min)), Math.max(most, ...extent(values, Math.max)));
	const [ bottom, top ] = [ ticks[0], ticks.at(-1) ];
	const x = (at) => (at - from) / (to - from) * WIDTH;
	const y = (value) => HEIGHT - (value - bottom) / (top - bottom) * HEIGHT;
	const path = (run) => run.map(([ at, value ], i) => `${i ? 'L' : 'M'}${x(at).toFixed(1)} ${y(value).toFixed(1)}`).join('');
	const drawing = svg('svg', { viewBox: `0 0 ${WIDTH} ${HEIGHT}`, preserveAspectRatio: 'none', 'aria-hidden': 'true' },
		...ticks.map(tick => svg('line', { class: 'grid', x1: 0, x2: WIDTH, y1: y(tick), y2: y(tick) })));

	for (const [ i, { points, color = i } ] of series.entries())
		for (const run of runs(points, step)) {
			/* A point alone is a dot: a line of no length with round ends. */
			const line = run.length > 1 ? path(run) : `${path(run)}h0.01`;

			if (area && i == 0 && run.length > 1)
				drawing.append(svg('path', { class: `area c${color % 8}`, d: `${line}L${x(run.at(-1)[0]).toFixed(1)} ${HEIGHT}L${x(run[0][0]).toFixed(1)} ${HEIGHT}Z` }));

			drawing.append(svg('path', { class: `line c${color % 8}`, d: line }));
		}

	const cross = h('div', { class: 'cross', hidden: true });
	const readout = h('span', { class: 'readout' });
	const figuresOf = series.map(() => h('span', { class: 'value' }));
	const plot = h('div', { class: 'plot', tabindex: 0, role: 'slider', 'aria-label': label, 'aria-valuemin': Math.round(from), 'aria-valuemax': Math.round(to) }, drawing, cross);

	function read(at) {
		cross.hidden = at === null;
		setText(readout, at === null ? '' : when(at, to));

		if (at !== null)
			cross.style.left = `${(at - from) / (to - from) * 100}%`;

		const said = series.map(({ name, points }, i) => {
			const found = at === null ? null : nearest(points, at, step * 1.5);

			setText(figuresOf[i], found ? write(found[1]) : '');

			return found ? `${name} ${write(found[1])}` : '';
		}).filter(Boolean);
		const now = at ?? to;

		plot.setAttribute('aria-valuenow', Math.round(now));
		plot.setAttribute('aria-valuetext', at === null ? `${series.length} line${series.length == 1 ? '' : 's'}; arrow keys read values` :
			`${when(at, to)}: ${said.join(', ') || 'nothing'}`);
	}

	let at = null;

	plot.addEventListener('pointermove', (event) => {
		const box = plot.getBoundingClientRect();

		at = from + Math.min(1, Math.max(0, (event.clientX - box.left) / box.width)) * (to - from);
		read(at);
	});
	plot.addEventListener('pointerleave', () => read(at = null));
	plot.addEventListener('blur', () => read(at = null));
	plot.addEventListener('keydown', (event) => {
		const jump = { ArrowLeft: -1, ArrowRight: 1, PageUp: 12, PageDown: -12 }[event.key];

		if (event.key != 'Home' && event.key != 'End' && !jump)
			return;

		event.preventDefault();
		at = event.key == 'Home' ? from : event.key == 'End' ? to : Math.min(to, Math.max(from, (at ?? to) + jump * step));
		read(at);
	});
	read(null);

	const scale = h('div', { class: 'scale', 'aria-hidden': 'true' }, ...ticks.map((tick) => {
		const node = h('span', null, write(tick));

		node.style.top = `${y(tick) / HEIGHT * 100}%`;

		return node;
	}));
	const axis = h('div', { class: 'axis', 'aria-hidden': 'true' }, ...times(from, to).map(({ at: time, text }) => {
		const node = h('span', null, text);
		const share = (time - from) / (to - from);

		node.style.left = `${share * 100}%`;
		node.hidden = share < 0.03 || share > 0.97;

		return node;
	}));

	return h('figure', { class: 'chart' },
		h('figcaption', { class: 'legend' }, ...series.map(({ name, color }, i) =>
			h('span', { class: `key c${(color ?? i) % 8}` }, h('bdi', null, name), figuresOf[i])), readout),
		h('div', { class: 'field' }, scale, plot), axis);
}

/* Of more values than a call takes as arguments. */
function extent(values, pick) {
	return [ values.reduce((best, value) => pick(best, value)) ];
}
