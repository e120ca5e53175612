'use strict';
'require view';
'require rpc';
'require poll';
'require dom';
'require ui';
'require wsmd.source as source';

/* Names, SSIDs and error texts are foreign: they are only put into arrays, where they become text nodes. */

const callDelete = rpc.declare({
	object: 'sta',
	method: 'delete',
	params: [ 'mac', 'radio' ],
	reject: true
});

const callSet = rpc.declare({
	object: 'sta',
	method: 'set',
	params: [ 'set_update_log_period' ],
	reject: true
});

const callAccess = rpc.declare({
	object: 'session',
	method: 'access',
	params: [ 'scope', 'object', 'function' ]
});

/* After so many answers of the daemon a client that is still there has not been disconnected. */
const PATIENCE = 3;

const PERIOD_MAX = 86400;

const wholeNumber = (/^[0-9]{1,5}$/);

const breakable = 'overflow-wrap:anywhere;min-width:5em';
const unbroken = 'white-space:nowrap';

/* Right-to-left characters in a name must not affect the text around it. */
function foreign(value) {
	return E('bdi', {}, [ value ]);
}

function byName(a, b) {
	return (a.name == '') - (b.name == '') || L.naturalCompare(a.name, b.name) || L.naturalCompare(a.mac, b.mac);
}

function nameCell({ name }) {
	return E('div', { 'style': breakable }, [ name != '' ? foreign(name) : '-' ]);
}

/* Sorted as a number: LuCI's comparison would read the digits of an address as decimal. */
function macCell({ mac }) {
	return E('div', {
		'style': source.isMac(mac) ? unbroken : breakable,
		'data-value': source.isMac(mac) ? parseInt(mac.split(':').join(''), 16) : 0
	}, [ mac ]);
}

function addressCell({ ip }) {
	return E('div', { 'style': ip.length > 15 ? breakable : unbroken }, [ ip || '-' ]);
}

function networkCell({ ssid, ifname, channel }) {
	const details = [];

	if (ifname != '')
		details.push(ifname);

	if (channel > 0)
		details.push(_('channel %d').format(channel).replace(' ', '\xa0'));

	return E('div', { 'style': breakable }, [
		foreign(ssid), E('br'), E('small', {}, [ details.join(', ') ])
	]);
}

/* Sorted by a number that is not negative: LuCI's comparison orders negative ones by their digits. */
function signalCell({ signal, doubtful }) {
	if (signal === null)
		return E('div', { 'data-value': 0 }, [ '-' ]);

	const order = Math.max(1, signal + 200);

	if (doubtful)
		return E('div', {
			'style': unbroken,
			'data-value': order,
			'data-tooltip': _('This figure also stands for every signal below -94 dBm.')
		}, [ '%d\xa0%s (?)'.format(signal, _('dBm')) ]);

	const quality = Math.min(Math.max(signal + 110, 0) / 70, 1);
	const bars = [ '000-025', '025-050', '050-075', '075-100' ][Math.min(Math.floor(quality * 4), 3)];

	return E('div', { 'style': unbroken, 'data-value': order }, [
		E('img', { 'src': L.resource(`icons/signal-${bars}.svg`), 'alt': '', 'width': 16, 'height': 16 }),
		' %d\xa0%s'.format(signal, _('dBm'))
	]);
}

/* Two figures, one below the other. "Up" is from the client. */
function upAndDown(up, down, sum) {
	return E('div', { 'style': unbroken, 'data-value': sum }, [ `↑ ${up}`, E('br'), `↓ ${down}` ]);
}

function rateCell({ rateUp, rateDown }) {
	if (rateUp + rateDown == 0)
		return E('div', { 'data-value': 0 }, [ '-' ]);

	return upAndDown('%d\xa0%s'.format(rateUp, _('Mbit/s')), '%d\xa0%s'.format(rateDown, _('Mbit/s')), rateUp + rateDown);
}

function trafficCell({ bytesUp, bytesDown }) {
	return upAndDown('%.1mB'.format(bytesUp), '%.1mB'.format(bytesDown), bytesUp + bytesDown);
}

function timeCell({ seconds, waiting }) {
	return E('div', { 'data-value': seconds ?? 0 }, [
		waiting ? _('just arrived') : (seconds === null) ? '-' : '%t'.format(seconds)
	]);
}

return view.extend({
	handleSave: null,
	handleSaveApply: null,
	handleReset: null,

	/* null until there was a first answer; a failed poll leaves the last list. */
	clients: null,
	answered: null,
	failure: null,

	/* How many there are, and whether they are all in the list. */
	total: 0,
	all: true,

	/* Clients that were disconnected, by MAC, until they are gone. */
	leaving: null,

	/* No load(): the page must open even if the daemon or the access point does not answer; the first poll fills it. */
	render() {
		this.leaving = new Map();
		this.filter = E('input', {
			'id': 'wsmd-filter',
			'type': 'search',
			'class': 'cbi-input-text',
			'placeholder': _('Name, address or network'),
			'style': 'width:20em;max-width:100%',
			'input': () => {
				this.draw();

				/* Asks for one client, unless the whole list is here already. */
				if (!this.all && source.isMac(this.wanted()))
					this.refresh();
			}
		});
		this.summary = E('span', {});
		this.state = E('div', { 'id': 'wsmd-state', 'role': 'status' });
		this.table = new ui.Table([
			_('Name'), _('MAC address'), _('IPv4 address'), _('SSID'), _('Signal'), _('Rate'),
			_('Traffic'), _('Connected'), _('Actions')
		], {
			'id': 'wsmd-clients',
			'sortable': [ 'ignorecase', 'numeric', 'auto', 'ignorecase', 'numeric', 'numeric', 'numeric', 'numeric' ],
			'captionClasses': [ '', '', '', '', '', '', '', '', 'cbi-section-actions' ]
		}, E('em', {}, [ _('Collecting data...') ]));
		this.tableNode = this.table.render();

		poll.add(() => this.refresh());

		return [
			E('h2', {}, [ _('Wireless clients') ]),
			E('div', { 'class': 'cbi-map-descr' }, [ _('Everyone connected to this access point, as the station daemon knows them.') ]),
			this.state,
			E('div', { 'class': 'cbi-section' }, [
				E('p', {}, [ E('label', { 'for': 'wsmd-filter' }, [ _('Filter') ]), ' ', this.filter, ' ', this.summary ]),
				this.tableNode
			]),
			this.renderPeriod()
		];
	},

	renderPeriod() {
		const readonly = L.hasViewPermission() ? null : true;

		this.period = E('input', {
			'id': 'wsmd-period',
			'type': 'text',
			'inputmode': 'numeric',
			'class': 'cbi-input-text',
			'style': 'width:6em',
			'aria-describedby': 'wsmd-period-about',
			'disabled': readonly
		});
		this.periodState = E('div', { 'role': 'status' });

		return E('div', { 'class': 'cbi-section' }, [
			E('h3', {}, [ _('Reports') ]),
			E('div', { 'class': 'cbi-value' }, [
				E('label', { 'class': 'cbi-value-title', 'for': 'wsmd-period' }, [ _('Seconds between reports') ]),
				E('div', { 'class': 'cbi-value-field' }, [
					this.period, ' ',
					E('button', {
						'class': 'btn cbi-button cbi-button-apply',
						'click': ui.createHandlerFn(this, 'handlePeriod'),
						'disabled': readonly
					}, [ _('Set') ]),
					E('div', { 'class': 'cbi-value-description', 'id': 'wsmd-period-about' }, [
						_('How often the daemon reports every client to its collector, until its next start; 60 after a start. The period in force cannot be read.')
					]),
					this.periodState
				])
			])
		]);
	},

	wanted() {
		return this.filter.value.trim().toLowerCase();
	},

	/* Never rejects. */
	async refresh() {
		try {
			this.failure = await this.ask();
		}
		catch (error) {
			this.failure = await this.explain(error);
		}

		if (!this.failure)
			this.answered = new Date();

		this.draw();
	},

	/* Takes the daemon's answer; returns a message if there is none. */
	async ask() {
		const told = await source.ask(this.wanted());

		if (told.status !== undefined)
			return _('The station daemon answered with status %d.').format(told.status);

		if (!told.clients)
			return _('The station daemon sent an answer that this page does not understand.');

		this.clients = told.clients.sort(byName);
		this.total = told.total;
		this.all = told.all;
		this.watchLeaving();

		return null;
	},

	async explain(error) {
		let code = source.errorNumber(error);

		if (code == -32002) {
			/* Refused: is the right missing, or has the session expired? Every login may make this call. */
			try {
				await callAccess('access-group', 'luci-app-wsmd', 'read');

				return _('Your login has no right to this: it needs the access group luci-app-wsmd.');
			}
			catch (second) {
				if (source.errorNumber(second) == -32002)
					return _('Your session has expired: log in again.');

				error = second;
				code = source.errorNumber(second);
			}
		}

		switch (code) {
		case -32000:
			return _('The station daemon is not running. This page goes on by itself once it is.');

		case -32003:
			return _('The station daemon does not answer.');

		default:
			return _('The request failed: %s').format(source.firstLine(error));
		}
	},

	/* "delete" answers 0 in every case: the list shows the result. */
	watchLeaving() {
		const present = new Map(this.clients.map(client => [ client.mac, client ]));

		for (const [ mac, left ] of this.leaving) {
			const client = present.get(mac);

			if (!client || client.stay != left.stay) {
				this.leaving.delete(mac);
			}
			else if (--left.patience <= 0) {
				this.leaving.delete(mac);
				ui.addNotification(null, [
					E('p', { 'style': breakable }, [ _('This client is still connected:'), ' ', foreign(client.name), ' ', mac ])
				], 'warning');
			}
		}
	},

	draw() {
		const wanted = this.wanted();
		const clients = this.clients ?? [];
		const shown = clients.filter(({ name, mac, ip, ssid, ifname }) => wanted == '' ||
			[ name, mac, ip, ssid, ifname ].some(value => value.toLowerCase().includes(wanted)));

		this.drawState();
		dom.content(this.summary, [ this.summaryText(shown.length, clients.length) ]);
		this.drawRows(shown.map(client => this.row(client)), E('em', {}, [ this.whyEmpty(wanted) ]));
	},

	summaryText(shown, all) {
		if (this.clients === null)
			return '';

		if (!this.all)
			return _('Clients: %d').format(this.total);

		return (shown == all) ? _('Clients: %d').format(all) : _('%d of %d clients').format(shown, all);
	},

	whyEmpty(wanted) {
		if (this.clients === null)
			return this.failure ? _('No information available') : _('Collecting data...');

		if (!this.all)
			return source.isMac(wanted) ? _('No client has this MAC address.') : _('Enter a whole MAC address as filter.');

		return this.clients.length ? _('No client matches the filter.') : _('No client is connected.');
	},

	/* Only when it has changed: a screen reader reads it each time. */
	drawState() {
		const words = [];

		if (this.failure) {
			words.push(this.failure);

			if (this.answered)
				words.push(_('What you see is from %s.').format(this.answered.toLocaleTimeString()));
		}
		else if (!this.all) {
			words.push(_('There are more clients than one answer of the daemon can carry. A single one can be looked up: enter its MAC address as filter.'));
		}

		const sentence = words.join(' ');

		if (sentence == this.state.textContent)
			return;

		dom.content(this.state, sentence == '' ? [] : [
			E('div', { 'class': 'alert-message warning', 'style': 'overflow-wrap:anywhere' }, [ E('p', {}, [ sentence ]) ])
		]);
	},

	row(client) {
		return [
			nameCell(client), macCell(client), addressCell(client), networkCell(client), signalCell(client),
			rateCell(client), trafficCell(client), timeCell(client), this.actionCell(client)
		];
	},

	actionCell(client) {
		const leaving = this.leaving.has(client.mac);
		const possible = L.hasViewPermission() && !leaving && !this.failure;

		return E('button', {
			'class': 'btn cbi-button cbi-button-remove',
			'data-mac': client.mac,
			'click': () => this.confirm(client),
			'disabled': possible ? null : true
		}, [ leaving ? _('Disconnecting…') : _('Disconnect') ]);
	},

	/* An update replaces every row: the keyboard focus is put back on the same button. */
	drawRows(rows, whenEmpty) {
		const mac = this.tableNode.contains(document.activeElement) ? document.activeElement.getAttribute('data-mac') : null;

		this.table.update(rows, whenEmpty);

		if (mac !== null)
			this.focusRow(mac);
	},

	focusRow(mac) {
		for (const button of this.tableNode.querySelectorAll('button'))
			if (button.getAttribute('data-mac') === mac)
				button.focus();
	},

	confirm(client) {
		const close = () => {
			ui.hideModal();
			this.focusRow(client.mac);
		};

		ui.showModal(_('Disconnect this client?'), [
			E('p', { 'style': breakable }, [
				E('strong', {}, [ foreign(client.name) ]), ' ', client.mac, E('br'), foreign(client.ssid)
			]),
			E('p', {}, [ _('It can connect again at once.') ]),
			E('div', { 'class': 'right button-row' }, [
				E('button', { 'class': 'btn cbi-button cbi-button-neutral', 'click': close }, [ _('Cancel') ]),
				' ',
				E('button', {
					'class': 'btn cbi-button cbi-button-negative important',
					'click': ui.createHandlerFn(this, 'handleDisconnect', client, close)
				}, [ _('Disconnect') ])
			])
		]);
	},

	async handleDisconnect(client, close) {
		try {
			await callDelete(client.listed, client.radio);
			this.leaving.set(client.mac, { stay: client.stay, patience: PATIENCE });
		}
		catch (error) {
			await this.complain(_('The client was not disconnected.'), error);
		}

		this.draw();
		close();
	},

	async handlePeriod() {
		const seconds = wholeNumber.test(this.period.value.trim()) ? +this.period.value.trim() : 0;

		if (seconds < 1 || seconds > PERIOD_MAX) {
			dom.content(this.periodState, [ _('Enter a whole number of seconds from 1 to %d.').format(PERIOD_MAX) ]);
			this.period.focus();

			return;
		}

		dom.content(this.periodState, []);

		try {
			await callSet(seconds);
			dom.content(this.periodState, [ _('All clients have been reported; from now on every %d seconds.').format(seconds) ]);
		}
		catch (error) {
			await this.complain(_('The period was not set.'), error);
		}
	},

	async complain(what, error) {
		ui.addNotification(null, [
			E('p', { 'style': 'overflow-wrap:anywhere' }, [ what, ' ', await this.explain(error) ])
		], 'danger');
	}
});
