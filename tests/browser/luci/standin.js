/*
 * A stand-in for the part of LuCI's documented interface that our view uses, with its traps: a bare string as child is
 * markup, null in an array is printed, an attribute "false" is set, a rejected load() leaves "Loading view…", an update
 * of a table makes every row anew, sorting compares as a collator does. What a view must not rely on is left out.
 */
'use strict';

/*
 * Time passes only when a test says so, in whole seconds: window.pass(5). That returns when every poll has settled, unless
 * the test does not want to wait.
 */
const clock = {
	timers: new Map(),

	after(seconds, fn) {
		const key = {};

		this.timers.set(key, { seconds, fn });

		return key;
	},

	cancel(key) {
		this.timers.delete(key);
	},

	tick() {
		for (const [ key, timer ] of this.timers)
			if (--timer.seconds <= 0) {
				this.timers.delete(key);
				timer.fn();
			}
	}
};

window.pass = async (seconds, wait = true) => {
	while (seconds-- > 0) {
		clock.tick();
		poll.step();

		if (wait)
			await Promise.all(poll.entries.map(entry => entry.running));
	}
};

const settings = JSON.parse(document.getElementById('settings').textContent);

/* --- text --- */

window._ = (message) => settings.catalogue[message] || message;

/* %t: seconds as "1d 2h 3m 4s", without the zeroes in front. */
function duration(seconds) {
	const parts = [ [ 86400, 'd' ], [ 3600, 'h' ], [ 60, 'm' ], [ 1, 's' ] ];
	let rest = seconds;
	const words = parts.map(([ size, unit ]) => {
		const number = Math.floor(rest / size);

		rest -= number * size;

		return [ number, unit ];
	});
	const first = words.findIndex(([ number ]) => number > 0);

	return words.slice(first < 0 ? 3 : first).map(([ number, unit ]) => `${number}${unit}`).join(' ');
}

/* %m: scaled by 1000, "119.5 K". */
function scaled(value, digits) {
	const units = [ '', 'K', 'M', 'G', 'T', 'P' ];
	let unit = 0;

	for (; value >= 1000 && unit + 1 < units.length; unit++)
		value /= 1000;

	return (unit ? value.toFixed(digits) : String(value)) + ' ' + units[unit];
}

String.prototype.format = function(...values) {
	let next = 0;

	return this.replace(/%(?:\.(\d+))?([sdtm%])/g, (whole, digits, kind) => {
		if (kind == '%')
			return '%';

		const value = values[Math.min(next++, values.length - 1)];

		switch (kind) {
		case 's': return String(value);
		case 'd': return String(Math.floor(+value) || 0);
		case 't': return duration(+value);
		default: return scaled(+value, +(digits ?? 2));
		}
	});
};

/* --- nodes --- */

function append(node, children) {
	if (Array.isArray(children))
		for (const child of children)
			node.append(child instanceof Node ? child : document.createTextNode(String(child)));
	else if (children instanceof Node)
		node.append(children);
	else if (children !== null && children !== undefined)
		node.insertAdjacentHTML('beforeend', String(children));
}

window.E = (tag, attributes, children) => {
	const node = document.createElement(tag);

	for (const [ key, value ] of Object.entries(attributes ?? {})) {
		if (typeof(value) == 'function')
			node.addEventListener(key, value);
		else if (value !== null && value !== undefined)
			node.setAttribute(key, typeof(value) == 'object' ? JSON.stringify(value) : value);
	}

	append(node, children);

	return node;
};

const dom = {
	content(node, children) {
		node.replaceChildren();
		append(node, children);
	}
};

/* --- L --- */

const collator = new Intl.Collator(undefined, { numeric: true });

window.L = {
	env: { sessionid: settings.session, pollinterval: 5 },
	isObject: (value) => typeof(value) == 'object' && value !== null && !Array.isArray(value),
	naturalCompare: (a, b) => collator.compare(a, b),
	resource: (path) => `/luci-static/resources/${path}`,
	hasViewPermission: () => settings.permission
};

/* --- rpc: the calls of one animation frame are one request, answered in its order --- */

class RPCError extends Error {}
RPCError.prototype.name = 'RPCError';

const TIMEOUT = 20; // seconds
let queue = [], identifier = 0;

function post(calls) {
	return new Promise((resolve, reject) => {
		const xhr = new XMLHttpRequest();
		const timer = clock.after(TIMEOUT, () => {
			xhr.abort();
			reject(new Error('XHR request timed out'));
		});

		xhr.open('POST', '/ubus/');
		xhr.onload = () => {
			clock.cancel(timer);

			if (xhr.status != 200)
				return reject(new Error(`HTTP error ${xhr.status}`));

			try {
				resolve(JSON.parse(xhr.responseText));
			}
			catch (error) {
				reject(error);
			}
		};
		xhr.onerror = () => {
			clock.cancel(timer);
			reject(new Error('XHR request failed'));
		};
		xhr.send(JSON.stringify(calls.map(call => call.message)));
	});
}

function message(object, method, values) {
	return { jsonrpc: '2.0', id: ++identifier, method: 'call', params: [ L.env.sessionid, object, method, values ] };
}

async function flush() {
	const calls = queue;

	queue = [];

	try {
		const replies = await post(calls);

		calls.forEach((call, i) => call.settle(replies[i]));
	}
	catch (error) {
		calls.forEach(call => call.reject(error));
	}
}

/* Refused: LuCI checks whether the session itself has ended; then it says so and stops polling. */
async function checkSession() {
	const [ reply ] = await post([ { message: message('session', 'access', { scope: 'ubus', object: 'session', function: 'access' }) } ]);

	if (!reply.error)
		return;

	poll.stop();
	ui.showModal(_('Session expired'), [
		E('p', {}, [ _('A new login is required since the authentication session expired.') ]),
		E('div', { 'class': 'right button-row' }, [ E('button', { 'class': 'btn' }, [ _('Log in…') ]) ])
	]);
}

const rpc = {
	declare({ object, method, params = [], reject: raise = false, ...other }) {
		if (Object.keys(other).length)
			throw new TypeError(`this stand-in has no ${Object.keys(other)}`);

		return (...values) => new Promise((resolve, reject) => {
			const named = {};

			params.forEach((name, i) => { if (values[i] !== undefined) named[name] = values[i]; });

			if (!queue.length)
				requestAnimationFrame(flush);

			queue.push({
				message: message(object, method, named),
				reject,
				settle(reply) {
					if (reply.error) {
						if (reply.error.code == -32002)
							checkSession();

						return reject(new RPCError(`RPC call to ${object}/${method} failed with error ${reply.error.code}: ` +
							`${reply.error.message}\n    at somewhere (rpc.js:1)`));
					}

					const [ status, data ] = reply.result;

					if (raise && status !== 0)
						return reject(new RPCError(`RPC call to ${object}/${method} failed with ubus code ${status}: Unknown error\n    at somewhere`));

					resolve(reply.result.length > 1 ? data : status);
				}
			});
		});
	}
};

/* --- poll: no entry is called again before its promise has settled --- */

const poll = {
	entries: [],
	seconds: 0,
	active: false,

	add(fn, seconds = L.env.pollinterval) {
		this.entries.push({ fn, seconds, running: null });
	},

	start() {
		this.active = true;
		this.step();
	},

	stop() {
		this.active = false;
	},

	step() {
		if (!this.active)
			return;

		for (const entry of this.entries)
			if (!entry.running && this.seconds % entry.seconds == 0) {
				entry.running = true; // for ever, after an exception
				entry.running = Promise.resolve(entry.fn()).finally(() => { entry.running = null; });
			}

		this.seconds++;
	}
};

/* --- ui --- */

class Table {
	constructor(captions, options, placeholder) {
		Object.assign(this, { captions, options, placeholder, sorting: null });
	}

	render() {
		this.node = E('table', { 'id': this.options.id, 'class': 'table cbi-section-table' }, [
			E('tr', { 'class': 'tr table-titles' }, this.captions.map((caption, i) => {
				const actions = this.options.captionClasses[i] == 'cbi-section-actions';

				return E('th', {
					'class': `th ${this.options.captionClasses[i]}`,
					'data-sortable-row': actions ? null : 'true',
					'click': actions ? null : () => this.sort(i)
				}, [ caption ]);
			}))
		]);
		this.update([], this.placeholder);

		return this.node;
	}

	sort(column) {
		this.sorting = { column, descending: this.sorting?.column == column && !this.sorting.descending };

		for (const th of this.node.rows[0].cells)
			th.removeAttribute('data-sort-direction');

		this.node.rows[0].cells[column].setAttribute('data-sort-direction', this.sorting.descending ? 'desc' : 'asc');
		this.update(this.rows, this.placeholder);
	}

	key(row) {
		const cell = row[this.sorting.column];
		const raw = cell.dataset?.value ?? cell.textContent;

		switch (this.options.sortable[this.sorting.column]) {
		case 'numeric': return String(+raw);
		case 'ignorecase': return raw.toLowerCase();
		default: return raw;
		}
	}

	update(rows, placeholder) {
		const [ titles ] = this.node.rows;

		Object.assign(this, { rows, placeholder });

		if (this.sorting)
			rows.sort((a, b) => collator.compare(this.key(a), this.key(b)) * (this.sorting.descending ? -1 : 1));

		while (titles.nextSibling)
			titles.nextSibling.remove();

		rows.forEach((cells, n) => this.node.append(E('tr', { 'class': `tr cbi-rowstyle-${n % 2 + 1}` }, cells.map((cell, i) => E('td', {
			'class': `td ${this.options.captionClasses[i]}`,
			'data-title': this.captions[i]
		}, cell)))));

		if (!rows.length)
			this.node.append(E('tr', { 'class': 'tr placeholder' }, [ E('td', { 'class': 'td', 'colspan': this.captions.length }, placeholder) ]));
	}
}

const ui = {
	Table,

	showModal(title, children) {
		dom.content(document.getElementById('modal'), [ E('h4', { 'id': 'modal-title' }, [ title ]) ]);
		append(document.getElementById('modal'), children);
		document.getElementById('modal').hidden = false;
		document.getElementById('modal').focus();
	},

	hideModal() {
		document.getElementById('modal').hidden = true;
	},

	addNotification(title, children, ...classes) {
		const box = E('div', { 'class': `alert-message ${classes.join(' ')}` }, [
			E('button', { 'class': 'btn', 'style': 'float:right', 'click': () => box.remove() }, [ _('Dismiss') ])
		]);

		append(box, title);
		append(box, children);
		document.getElementById('maincontent').prepend(box);
	},

	createHandlerFn(context, fn, ...values) {
		return (event) => {
			const button = event.currentTarget;

			button.classList.add('spinning');
			button.disabled = true;
			Promise.resolve((typeof(fn) == 'string' ? context[fn] : fn).call(context, ...values, event)).finally(() => {
				button.classList.remove('spinning');
				button.disabled = false;
			});
		};
	}
};

document.addEventListener('keydown', (event) => {
	if (event.key == 'Escape' && !document.getElementById('modal').hidden)
		document.querySelector('#modal .right > button, #modal .button-row button')?.click();
});

/* --- views --- */

const base = { load() {}, render() {}, handleSave() {}, handleSaveApply() {}, handleReset() {} };
const classes = {
	view: { extend: (members) => ({ ...base, ...members }) },
	baseclass: { extend: (members) => ({ ...members }) },
	rpc, poll, dom, ui
};

/* What a source requires: its first string literals, as [class, name in the source]. It is the body of a function of these. */
function requirements(source) {
	const literal = /^(?:\s|\/\*[^]*?\*\/|\/\/[^\n]*\n)*'([^']*)';/;
	const names = [];

	for (let found; (found = source.match(literal)); source = source.slice(found[0].length)) {
		const required = found[1].match(/^require (\S+)(?: as (\S+))?$/);

		if (required)
			names.push([ required[1], required[2] ?? required[1].replaceAll('.', '_') ]);
	}

	return names;
}

/* The one instance of a class. The class is fetched first, with all that it requires. */
async function load(name) {
	if (!classes[name]) {
		const source = await (await fetch(`/luci-static/resources/${name.replaceAll('.', '/')}.js`)).text();
		const names = requirements(source);
		const instances = [];

		for (const [ required ] of names)
			instances.push(await load(required));

		classes[name] = Function('window', 'document', 'L', ...names.map(([ , own ]) => own), source)(window, document, L, ...instances);
	}

	return classes[name];
}

async function show() {
	const view = await load(`view.${settings.view.replaceAll('/', '.')}`);
	const children = await view.render(await view.load());
	const node = document.getElementById('view');

	dom.content(node, children);

	if (view.handleSave || view.handleSaveApply || view.handleReset)
		node.append(E('div', { 'class': 'cbi-page-actions' }, [ _('Save') ]));

	poll.start();
}

show();
