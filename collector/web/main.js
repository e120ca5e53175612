/* The frame: which view an address means, and how the connection is. */
import { h, setText } from './dom.js';
import { Live } from './live.js';
import { Model } from './model.js';
import { stationsView } from './stations.js';

const main = document.getElementById('main');
const connection = document.getElementById('connection');
const model = new Model();

let state = { phase: 'loading', words: 'Loading…' };
let view = null;
let frame = 0;

const live = new Live(model, {
	told(now) {
		state = now;
		connection.dataset.phase = now.phase;
		setText(connection, now.phase == 'lost' ? 'No connection' : now.words);
		connection.title = now.words;
		view?.told?.(now);
	},
	changed() {
		frame ||= requestAnimationFrame(() => {
			frame = 0;
			view?.changed?.();
		});
	},
	first: () => view?.first?.() ?? null
});

const app = { model, live, get state() { return state; } };

/* By the first word of the address behind "#/". What is seldom looked at is fetched when it is. */
const views = {
	'stations': async () => stationsView,
	'station': async () => (await import('./station.js')).stationView,
	'access-points': async () => (await import('./access_points.js')).accessPointsView
};

let turn = 0;

/* A word of an address, also one that was cut or typed wrongly. */
function decoded(word) {
	try {
		return decodeURIComponent(word);
	}
	catch {
		return word;
	}
}

async function show() {
	const mine = ++turn;
	const [ path, query = '' ] = location.hash.replace(/^#\/?/, '').split('?');
	const [ name, ...words ] = path.split('/').map(decoded);
	const made = await (Object.hasOwn(views, name) ? views[name] : views.stations)();

	if (mine != turn)
		return; // somebody has gone on meanwhile

	view?.close?.();
	view = made(app, words, new URLSearchParams(query));
	main.replaceChildren(view.node);
	main.scrollTop = 0;
	document.title = `${view.title} – wsmd`;

	for (const link of document.querySelectorAll('body > header nav a'))
		link.getAttribute('href').slice(2) == view.nav ? link.setAttribute('aria-current', 'page') : link.removeAttribute('aria-current');

	view.told?.(state);
	view.changed?.();
}

function trouble(error) {
	main.replaceChildren(h('p', { class: 'notice bad', role: 'alert' }, 'This page does not work here: ', String(error.message ?? error)));
}

/* The link to the content must not look like an address of a view. */
document.querySelector('.skip').addEventListener('click', (event) => {
	event.preventDefault();
	main.focus();
});
window.addEventListener('hashchange', () => show().then(() => main.focus({ preventScroll: true })).catch(trouble));
show().catch(trouble).finally(() => live.run());
