'use strict';
'require view';
'require rpc';
'require poll';
'require dom';
'require ui';

/* Names, SSIDs and error texts were written by strangers: they go into arrays only, where they become text nodes. */

/* Without "reject" and "expect" a status other than 0 arrives as a number, and an empty list stays apart from a failure. */
const callGet = rpc.declare({
	object: 'sta',
	method: 'get',
	params: [ 'get_all_sta_status', 'get_sta_mac', 'get_sta_count' ]
});

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

/* A list that does not fit into a bus message. */
const STATUS_TOO_LARGE = 11;

/* How long a client may take to leave before we say that it did not, in answers of the daemon. */
const PATIENCE = 3;

const PERIOD_MAX = 86400;

const fullMac = (/^([0-9a-f]{2}:){5}[0-9a-f]{2}$/);
const wholeNumber = (/^[0-9]{1,5}$/);

/* The number of a JSON-RPC error is in the message only; the words around it are in the viewer's language. */
const rpcErrorNumber = (/-32[0-9]{3}/);

const breakable = 'overflow-wrap:anywhere;min-width:5em';
const unbroken = 'white-space:nowrap';

function firstLine(error) {
	return String(error?.message ?? error).split('\n')[0];
}

function errorNumber(error) {
	return +(firstLine(error).match(rpcErrorNumber)?.[0] ?? 0);
}

function text(value) {
	return (typeof(value) == 'string') ? value.trim() : '';
}

/* Counters and times: never negative, never broken. */
function count(value) {
	return Math.max(0, Math.floor(+value) || 0);
}

/* Right-to-left characters in a name stay within it. */
function foreign(value) {
	return E('bdi', {}, [ value ]);
}

function nameOf(station) {
	const name = text(station.name);

	return (name == '-') ? '' : name;
}

function macOf(station) {
	return text(station.mac).toLowerCase();
}

/* The same client, but connected anew, is another stay. */
function stayOf(station) {
	return `${station.online_ts}`;
}

function byName(a, b) {
	const left = nameOf(a), right = nameOf(b);

	return (left == '') - (right == '') || L.naturalCompare(left, right) || L.naturalCompare(macOf(a), macOf(b));
}

function nameCell(station) {
	return E('div', { 'style': breakable }, [ nameOf(station) != '' ? foreign(nameOf(station)) : '-' ]);
}

/* Sorted as a number: LuCI's comparison would take the digits in an address for decimal ones. */
function macCell(station) {
	const mac = macOf(station);

	return E('div', {
		'style': fullMac.test(mac) ? unbroken : breakable,
		'data-value': fullMac.test(mac) ? parseInt(mac.split(':').join(''), 16) : 0
	}, [ mac ]);
}

function addressCell(station) {
	const ip = text(station.ip);

	return E('div', { 'style': ip.length > 15 ? breakable : unbroken }, [ ip || '-' ]);
}

function networkCell(station) {
	const details = [];

	if (text(station.ssid_ifname) != '')
		details.push(text(station.ssid_ifname));

	if (count(station.channel) > 0)
		details.push(_('channel %d').format(station.channel).replace(' ', '\xa0'));

	return E('div', { 'style': breakable }, [
		foreign(text(station.ssid)), E('br'), E('small', {}, [ details.join(', ') ])
	]);
}

/*
 * The bus has the signal as a text, dBm + 95, and "65" for everything below -94 dBm. A client without a reading has
 * 0 dBm there. Sorted by that number, which is not negative.
 */
function signalCell(station) {
	const power = parseInt(text(station.power), 10);

	if (!(power > 0 && power < 95))
		return E('div', { 'data-value': 0 }, [ '-' ]);

	if (power == 65)
		return E('div', {
			'style': unbroken,
			'data-value': power,
			'data-tooltip': _('This figure also stands for every signal below -94 dBm.')
		}, [ '%d\xa0%s (?)'.format(power - 95, _('dBm')) ]);

	const quality = Math.min((power + 15) / 70, 1);
	const bars = [ '000-025', '025-050', '050-075', '075-100' ][Math.min(Math.floor(quality * 4), 3)];

	return E('div', { 'style': unbroken, 'data-value': power }, [
		E('img', { 'src': L.resource(`icons/signal-${bars}.svg`), 'alt': '', 'width': 16, 'height': 16 }),
		' %d\xa0%s'.format(power - 95, _('dBm'))
	]);
}

/* Two figures, one below the other. Up is what the client sends. */
function upAndDown(up, down, sum) {
	return E('div', { 'style': unbroken, 'data-value': sum }, [ `↑ ${up}`, E('br'), `↓ ${down}` ]);
}

/* Rates are Mbit/s times 1024 on the bus. */
function rateCell(station) {
	const up = count(station.flowup_rate_cnt / 1024), down = count(station.flowdown_rate_cnt / 1024);

	if (up + down == 0)
		return E('div', { 'data-value': 0 }, [ '-' ]);

	return upAndDown('%d\xa0%s'.format(up, _('Mbit/s')), '%d\xa0%s'.format(down, _('Mbit/s')), up + down);
}

function trafficCell(station) {
	const up = count(station.wifi_up_cnt), down = count(station.wifi_down_cnt);

	return upAndDown('%.1mB'.format(up), '%.1mB'.format(down), up + down);
}

function timeCell(station) {
	return E('div', { 'data-value': count(station.oltime) }, [
		(station.status == 2) ? _('just arrived') : '%t'.format(count(station.oltime))
	]);
}

return view.extend({
	handleSave: null,
	handleSaveApply: null,
	handleReset: null,

	/* null until there was a first answer; a failed poll leaves the last list. */
	stations: null,
	answered: null,
	failure: null,

	/* With how many clients the list was too large last: as long as there are as many, it is not asked for again. */
	tooMany: 0,
	total: 0,

	/* Clients that we have sent away, by MAC, until they are seen to be gone. */
	leaving: null,

	/* No load(): the page opens while the daemon or the whole access point does not answer; the first poll fills it. */
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

				/* One client is asked for; of a list that is here already nothing is. */
				if (this.tooMany && fullMac.test(this.wanted()))
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

	/* Takes the daemon's answer; what is returned is the words for why there is none. */
	async ask() {
		const wanted = this.wanted();

		if (this.tooMany) {
			this.total = count((await callGet('online', undefined, 'all'))?.count);

			if (this.total < this.tooMany)
				this.tooMany = 0;
			else
				return this.take(fullMac.test(wanted) ? await callGet('online', wanted) : { online_list: [] });
		}

		const reply = await callGet('online');

		if (reply === STATUS_TOO_LARGE) {
			this.total = count((await callGet('online', undefined, 'all'))?.count);
			this.tooMany = Math.max(1, this.total);

			return this.take({ online_list: [] });
		}

		return this.take(reply);
	},

	take(reply) {
		if (typeof(reply) == 'number')
			return _('The station daemon answered with status %d.').format(reply);

		if (!Array.isArray(reply?.online_list))
			return _('The station daemon sent an answer that this page does not understand.');

		this.stations = reply.online_list.filter(L.isObject).sort(byName);
		this.watchLeaving();

		return null;
	},

	async explain(error) {
		let code = errorNumber(error);

		if (code == -32002) {
			/* Refused: is it the right that is missing, or the login that is gone? Who is logged in may ask this. */
			try {
				await callAccess('access-group', 'luci-app-wsmd', 'read');

				return _('Your login has no right to this: it needs the access group luci-app-wsmd.');
			}
			catch (second) {
				if (errorNumber(second) == -32002)
					return _('Your session has expired: log in again.');

				error = second;
				code = errorNumber(second);
			}
		}

		switch (code) {
		case -32000:
			return _('The station daemon is not running. This page goes on by itself once it is.');

		case -32003:
			return _('The station daemon does not answer.');

		default:
			return _('The request failed: %s').format(firstLine(error));
		}
	},

	/* "delete" answers 0 in every case: what has become of it shows in the list. */
	watchLeaving() {
		const present = new Map(this.stations.map(station => [ macOf(station), station ]));

		for (const [ mac, left ] of this.leaving) {
			const station = present.get(mac);

			if (!station || stayOf(station) != left.stay) {
				this.leaving.delete(mac);
			}
			else if (--left.patience <= 0) {
				this.leaving.delete(mac);
				ui.addNotification(null, [
					E('p', { 'style': breakable }, [ _('This client is still connected:'), ' ', foreign(nameOf(station)), ' ', mac ])
				], 'warning');
			}
		}
	},

	draw() {
		const wanted = this.wanted();
		const stations = this.stations ?? [];
		const shown = stations.filter(station => wanted == '' ||
			[ nameOf(station), macOf(station), text(station.ip), text(station.ssid), text(station.ssid_ifname) ]
				.some(value => value.toLowerCase().includes(wanted)));

		this.drawState();
		dom.content(this.summary, [ this.summaryText(shown.length, stations.length) ]);
		this.drawRows(shown.map(station => this.row(station)), E('em', {}, [ this.placeholder(wanted) ]));
	},

	summaryText(shown, all) {
		if (this.stations === null)
			return '';

		if (this.tooMany)
			return _('Clients: %d').format(this.total);

		return (shown == all) ? _('Clients: %d').format(all) : _('%d of %d clients').format(shown, all);
	},

	placeholder(wanted) {
		if (this.stations === null)
			return this.failure ? _('No information available') : _('Collecting data...');

		if (this.tooMany)
			return fullMac.test(wanted) ? _('No client has this MAC address.') : _('Enter a whole MAC address as filter.');

		return this.stations.length ? _('No client matches the filter.') : _('No client is connected.');
	},

	/* Only when it has changed: a screen reader says it each time. */
	drawState() {
		const words = [];

		if (this.failure) {
			words.push(this.failure);

			if (this.answered)
				words.push(_('What you see is from %s.').format(this.answered.toLocaleTimeString()));
		}
		else if (this.tooMany) {
			words.push(_('There are more clients than one answer of the daemon can carry. A single one can be looked up: enter its MAC address as filter.'));
		}

		const sentence = words.join(' ');

		if (sentence == this.state.textContent)
			return;

		dom.content(this.state, sentence == '' ? [] : [
			E('div', { 'class': 'alert-message warning', 'style': 'overflow-wrap:anywhere' }, [ E('p', {}, [ sentence ]) ])
		]);
	},

	row(station) {
		return [
			nameCell(station), macCell(station), addressCell(station), networkCell(station), signalCell(station),
			rateCell(station), trafficCell(station), timeCell(station), this.actionCell(station)
		];
	},

	actionCell(station) {
		const leaving = this.leaving.has(macOf(station));
		const possible = L.hasViewPermission() && !leaving && !this.failure;

		return E('button', {
			'class': 'btn cbi-button cbi-button-remove',
			'data-mac': macOf(station),
			'click': () => this.confirm(station),
			'disabled': possible ? null : true
		}, [ leaving ? _('Disconnecting…') : _('Disconnect') ]);
	},

	/* An update makes every row anew: whoever is on a button with the keyboard stays there. */
	drawRows(rows, placeholder) {
		const mac = this.tableNode.contains(document.activeElement) ? document.activeElement.getAttribute('data-mac') : null;

		this.table.update(rows, placeholder);

		if (mac !== null)
			this.focusRow(mac);
	},

	focusRow(mac) {
		for (const button of this.tableNode.querySelectorAll('button'))
			if (button.getAttribute('data-mac') === mac)
				button.focus();
	},

	confirm(station) {
		const close = () => {
			ui.hideModal();
			this.focusRow(macOf(station));
		};

		ui.showModal(_('Disconnect this client?'), [
			E('p', { 'style': breakable }, [
				E('strong', {}, [ foreign(nameOf(station)) ]), ' ', macOf(station), E('br'), foreign(text(station.ssid))
			]),
			E('p', {}, [ _('It can connect again at once.') ]),
			E('div', { 'class': 'right button-row' }, [
				E('button', { 'class': 'btn cbi-button cbi-button-neutral', 'click': close }, [ _('Cancel') ]),
				' ',
				E('button', {
					'class': 'btn cbi-button cbi-button-negative important',
					'click': ui.createHandlerFn(this, 'handleDisconnect', station, close)
				}, [ _('Disconnect') ])
			])
		]);
	},

	async handleDisconnect(station, close) {
		try {
			await callDelete(station.mac, +station.radio_id);
			this.leaving.set(macOf(station), { stay: stayOf(station), patience: PATIENCE });
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
