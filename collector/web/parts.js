/* What the views of history share. */
import { h } from './dom.js';
import { why } from './api.js';

export const RANGES = [ [ 1, '24 hours' ], [ 7, '7 days' ], [ 30, '30 days' ] ];

/* The days that the address asks for. */
export function daysOf(query) {
	return RANGES.find(([ days ]) => days == query.get('days'))?.[0] ?? 7;
}

/* Links to the same view of another range. */
export function rangePicker(path, chosen, more = {}) {
	return h('nav', { class: 'ranges', 'aria-label': 'Time range' }, ...RANGES.map(([ days, words ]) =>
		h('a', { href: `#/${path}?${new URLSearchParams({ ...more, days })}`, 'aria-current': days == chosen ? 'true' : null }, words)));
}

/* Seconds of a chart's point, so that a range has about three hundred. */
export function stepOf(days) {
	return { 1: 300, 7: 1800, 30: 7200 }[days];
}

export function card(title, ...content) {
	return h('section', { class: 'card' }, h('h2', null, title), ...content);
}

/*
 * A table of `rows`; `columns`: [[heading, cell of a row, class]]. The words for none stand where there is no row.
 */
export function table(label, columns, rows, none) {
	if (!rows.length)
		return h('p', { class: 'none' }, none);

	return h('div', { class: 'wide', tabindex: 0, role: 'region', 'aria-label': label }, h('table', null,
		h('caption', { class: 'unseen' }, label),
		h('thead', null, h('tr', null, ...columns.map(([ heading, , name ]) => h('th', { scope: 'col', class: name }, heading)))),
		h('tbody', null, ...rows.map(row => h('tr', null, ...columns.map(([ , cell, name ]) => h('td', { class: name }, ...[ cell(row) ].flat())))))));
}

export function stationLink({ mac, name }) {
	return h('a', { href: `#/station/${mac}`, dir: 'auto', title: mac }, name?.trim() || mac);
}

/* "OW_STA_DEAUTH_RECV" as words; whatever else is told stays as it is. */
export function reasonWords(reason) {
	return /^OW_STA_[A-Z0-9_]+$/.test(reason) ? reason.slice(7).toLowerCase().replaceAll('_', ' ') : reason || 'not told';
}

export function failure(error, again) {
	return h('div', { class: 'notice', role: 'alert' }, why(error), ' ', h('button', { type: 'button', onclick: again }, 'Try again'));
}
