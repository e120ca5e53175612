/* Where a station was, day by day in the viewer's zone. Pure but for the zone. */

/*
 * The places of stays: [{from, to, ap, radio, stay, ongoing}], the oldest first. `sessions` and `changes` are answers of the
 * interface for one station; a stay that goes on lasts until now.
 */
export function places(sessions, changes, now) {
	const roams = new Map();
	const first = new Map();

	for (const change of [ ...changes ].sort((a, b) => a.at - b.at || a.id - b.id)) {
		if (change.kind == 'joined')
			first.set(change.stay, change);
		else if (change.kind == 'roamed')
			roams.set(change.stay, [ ...roams.get(change.stay) ?? [], change ]);
	}

	const found = [];

	for (const stay of sessions) {
		const to = stay.ended ?? now;
		const moves = roams.get(stay.id) ?? [];
		const begun = first.get(stay.id);
		let place = begun ? { ap: begun.ap, radio: begun.radio } : moves.length ? { ap: moves[0].from_ap, radio: moves[0].from_radio } : { ap: stay.ap, radio: stay.radio };
		let from = stay.began;

		for (const move of moves) {
			const at = Math.min(Math.max(move.at, from), to);

			found.push({ from, to: at, ...place, stay: stay.id, ongoing: false });
			from = at;
			place = { ap: move.ap, radio: move.radio };
		}

		found.push({ from, to: Math.max(from, to), ...place, stay: stay.id, ongoing: stay.ended === null });
	}

	return found.sort((a, b) => a.from - b.from);
}

export function midnightBefore(at) {
	return new Date(at * 1000).setHours(0, 0, 0, 0) / 1000;
}

/* A day may have 23 or 25 hours. */
export function nextMidnight(midnight) {
	const date = new Date(midnight * 1000);

	return new Date(date.getFullYear(), date.getMonth(), date.getDate() + 1).getTime() / 1000;
}

/* The days from `from` to `to`, the newest first: [{begin, end, pieces, seconds, stays, roams}]; pieces are cut at midnight. */
export function days(found, from, to) {
	const all = [];

	for (let begin = midnightBefore(from), end; begin < to; begin = end) {
		end = nextMidnight(begin);

		const pieces = found.filter(piece => piece.from < end && piece.to >= begin)
			.map(piece => ({ ...piece, from: Math.max(piece.from, begin), to: Math.min(piece.to, end) }));
		const stays = new Set(pieces.map(piece => piece.stay)).size;

		all.unshift({ begin, end, pieces, stays, roams: pieces.length - stays, seconds: pieces.reduce((sum, piece) => sum + piece.to - piece.from, 0) });
	}

	return all;
}
