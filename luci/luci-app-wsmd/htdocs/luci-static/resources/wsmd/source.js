'use strict';
'require baseclass';
'require rpc';

/*
 * The connected clients from the daemon's bus: the object "wsmd" page by page, or "sta" of a daemon without it.
 * A client has these members, whichever object it came from:
 *   listed      its MAC address as the bus has it; mac: the same in lower case
 *   name, ip, ssid, ifname   texts, empty while not known
 *   channel, radio           numbers
 *   signal      dBm, or null; doubtful: the figure can mean another value as well
 *   rateUp, rateDown         Mbit/s; up is from the client
 *   bytesUp, bytesDown       of this stay
 *   seconds     connected for so long, or null; waiting: it has just arrived
 *   stay        differs if the same client connects again
 */

/* Without "reject" and "expect" a status other than 0 arrives as a number, and an empty list can be distinguished from a failure. */
const callStations = rpc.declare({
	object: 'wsmd',
	method: 'stations',
	params: [ 'limit', 'fields', 'after' ]
});

const callGet = rpc.declare({
	object: 'sta',
	method: 'get',
	params: [ 'get_all_sta_status', 'get_sta_mac', 'get_sta_count' ]
});

const FIELDS = [
	'mac', 'name', 'ip', 'ssid', 'interface', 'channel', 'radio', 'state', 'came', 'connected', 'signal',
	'rx_rate', 'tx_rate', 'rx_bytes', 'tx_bytes'
];

/* Clients in a page of "wsmd", and the most that are read at each poll. */
const PAGE = 256;
const MOST = 2048;

/* Status of "sta" for a list that does not fit into a bus message. */
const TOO_LARGE = 11;

/* Errors of JSON-RPC: there is no such object, or the login may not call it. */
const NO_OBJECT = -32000;
const NO_RIGHT = -32002;

const fullMac = (/^([0-9a-f]{2}:){5}[0-9a-f]{2}$/);

/* The number of a JSON-RPC error is only in the message, whose other words are in the viewer's language. */
const rpcErrorNumber = (/-32[0-9]{3}/);

function text(value) {
	return (typeof(value) == 'string') ? value.trim() : '';
}

/* Counters and times: never negative, always whole numbers. */
function count(value) {
	return Math.max(0, Math.floor(+value) || 0);
}

function fromWsmd(station) {
	return {
		listed: station.mac,
		mac: text(station.mac).toLowerCase(),
		name: text(station.name),
		ip: text(station.ip),
		ssid: text(station.ssid),
		ifname: text(station.interface),
		channel: count(station.channel),
		radio: +station.radio,
		signal: (station.signal < 0) ? Math.round(station.signal) : null,
		doubtful: false,
		rateUp: count(station.rx_rate / 1000000),
		rateDown: count(station.tx_rate / 1000000),
		bytesUp: count(station.rx_bytes),
		bytesDown: count(station.tx_bytes),
		seconds: (station.connected >= 0) ? count(station.connected) : null,
		waiting: station.state == 'waiting',
		stay: `${station.came}`
	};
}

/*
 * "sta" has the signal as a text, dBm + 95, and "65" for everything below -94 dBm. A client without a reading has 0 dBm
 * there. Rates are Mbit/s times 1024.
 */
function fromSta(station) {
	const power = parseInt(text(station.power), 10);
	const name = text(station.name);

	return {
		listed: station.mac,
		mac: text(station.mac).toLowerCase(),
		name: (name == '-') ? '' : name,
		ip: text(station.ip),
		ssid: text(station.ssid),
		ifname: text(station.ssid_ifname),
		channel: count(station.channel),
		radio: +station.radio_id,
		signal: (power > 0 && power < 95) ? power - 95 : null,
		doubtful: power == 65,
		rateUp: count(station.flowup_rate_cnt / 1024),
		rateDown: count(station.flowdown_rate_cnt / 1024),
		bytesUp: count(station.wifi_up_cnt),
		bytesDown: count(station.wifi_down_cnt),
		seconds: count(station.oltime),
		waiting: station.status == 2,
		stay: `${station.online_ts}`
	};
}

return baseclass.extend({
	/* The daemon has only "sta": "wsmd" is asked again when that has failed as well, since another daemon may start. */
	plain: false,

	/* The number of clients with which the list was too large; while there are as many, it is not asked for again. */
	many: 0,

	firstLine(error) {
		return String(error?.message ?? error).split('\n')[0];
	},

	errorNumber(error) {
		return +(this.firstLine(error).match(rpcErrorNumber)?.[0] ?? 0);
	},

	isMac(word) {
		return fullMac.test(word);
	},

	/*
	 * { clients, total, all: true }, or when there are too many for a list all: false and the one with this MAC address.
	 * { status } is the daemon's refusal, {} an answer that cannot be understood. Rejects as a call of rpc does.
	 */
	async ask(mac) {
		if (this.many) {
			const total = await this.count();

			if (total >= this.many)
				return this.single(mac, total);

			this.many = 0;
		}

		return (this.plain ? null : await this.pages(mac)) ?? this.table(mac);
	},

	/* From "wsmd"; null when it is not there, or answers something else. */
	async pages(mac) {
		const clients = [];

		for (let after; ;) {
			let reply;

			try {
				reply = await callStations(PAGE, FIELDS, after);
			}
			catch (error) {
				if ([ NO_OBJECT, NO_RIGHT ].includes(this.errorNumber(error)))
					return null;

				throw error;
			}

			if (!Array.isArray(reply?.stations))
				return null;

			if (count(reply.total) > MOST)
				return this.tooMany(mac, count(reply.total));

			clients.push(...reply.stations.filter(L.isObject).map(fromWsmd));

			if (!(reply.next > (after ?? '')))
				return { clients, total: clients.length, all: true };

			after = reply.next;
		}
	},

	/* From "sta". */
	async table(mac) {
		this.plain = false;

		const reply = await callGet('online');

		if (reply === TOO_LARGE)
			return this.tooMany(mac, await this.count());

		const told = this.listed(reply);

		this.plain = !!told.clients;

		return told;
	},

	listed(reply) {
		if (typeof(reply) == 'number')
			return { status: reply };

		if (!Array.isArray(reply?.online_list))
			return {};

		const clients = reply.online_list.filter(L.isObject).map(fromSta);

		return { clients, total: clients.length, all: true };
	},

	async count() {
		return count((await callGet('online', undefined, 'all'))?.count);
	},

	tooMany(mac, total) {
		this.many = Math.max(1, total);

		return this.single(mac, total);
	},

	async single(mac, total) {
		const told = this.isMac(mac) ? this.listed(await callGet('online', mac)) : { clients: [] };

		return told.clients ? { ...told, total, all: false } : told;
	}
});
