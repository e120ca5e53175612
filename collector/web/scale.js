/* Axes: which figures and times stand beside a chart. Pure but for the zone. */
import { clock, day, shortDay } from './format.js';
import { midnightBefore, nextMidnight } from './timeline.js';

/* Round figures from below `least` to above `most`, about four steps of them. */
export function figures(least, most) {
	if (most <= least)
		most = least + 1;

	const rough = (most - least) / 4;
	const power = 10 ** Math.floor(Math.log10(rough));
	const step = [ 1, 2, 5, 10 ].map(n => n * power).find(n => n >= rough * 0.999);
	const first = Math.floor(least / step + 1e-9) * step;
	const all = [ first ];

	while (all.at(-1) < most - step * 1e-6)
		all.push(+(first + all.length * step).toPrecision(12));

	return all;
}

/* [{at, text}]: hours of a day or two, else midnights, about seven of them. */
export function times(from, to) {
	const all = [];

	if (to - from <= 2 * 86400) {
		const hours = to - from <= 3 * 3600 ? 0.5 : to - from <= 9 * 3600 ? 1 : to - from <= 30 * 3600 ? 4 : 8;

		for (let midnight = midnightBefore(from); midnight < to; midnight = nextMidnight(midnight))
			for (let at = midnight; at < nextMidnight(midnight); at += hours * 3600)
				if (at >= from && at <= to)
					all.push({ at, text: at == midnight ? day(at) : clock(at) });

		return all;
	}

	const midnights = [];

	for (let at = nextMidnight(midnightBefore(from)); at <= to; at = nextMidnight(at))
		midnights.push({ at, text: shortDay(at) });

	const every = Math.ceil(midnights.length / 8);

	return midnights.filter((_, i) => i % every == 0);
}

/* Points [[at, value]] as runs without a gap; a gap is where more than two and a half steps have no value. */
export function runs(points, step) {
	const all = [];
	let last = -Infinity;

	for (const point of points) {
		if (!Number.isFinite(point[1]))
			continue;

		if (point[0] - last > step * 2.5)
			all.push([]);

		all.at(-1).push(point);
		last = point[0];
	}

	return all;
}
