/*
 * The server for the page: files of the application, the menu's path to the view, the rights of its access file, and
 * the bus at /ubus/ with the answers of the daemon, as the example in docs/bus-api.md shows them (printed by the programs).
 */
'use strict';

const fs = require('fs');
const http = require('http');
const path = require('path');

const ROOT = path.resolve(__dirname, '../../..');
const APPLICATION = path.join(ROOT, 'luci/luci-app-wsmd');
const PAGE = 'admin/status/wsmd';
const SESSION = '0123456789abcdef0123456789abcdef';
const BUS_MESSAGE = 1 << 20;

/* A text with this in it is sent with the byte 0xff in its place, which is not UTF-8. */
const BROKEN = '\ue000';

function read(...parts) {
	return fs.readFileSync(path.join(...parts), 'utf8');
}

/* The one station of the documented answer. */
function exampleStation() {
	const [ , json ] = read(ROOT, 'docs/bus-api.md').match(/example: ubus call sta get '\{"get_all_sta_status":"online"\}' -->\n```\n([^]*?)\n```/);

	return JSON.parse(json).online_list[0];
}

/* A station of the object "wsmd" as documented, with the figures of one of "sta". */
function richStation(station = {}) {
	const [ , json ] = read(ROOT, 'docs/bus-api.md').match(/example: ubus call wsmd station '\{"mac":"[0-9a-f:]*"\}' -->\n```\n([^]*?)\n```/);
	const power = +station.power;
	const figures = {
		mac: station.mac, name: station.name == '-' ? null : station.name, ip: station.ip || null, ssid: station.ssid, interface: station.ssid_ifname,
		channel: station.channel || null, radio: station.radio_id, state: station.status == 2 ? 'waiting' : 'online', came: station.online_ts,
		connected: station.oltime, signal: power == 95 ? null : power - 95, rx_rate: station.flowup_rate_cnt / 1024 * 1e6 || null,
		tx_rate: station.flowdown_rate_cnt / 1024 * 1e6 || null, rx_bytes: station.wifi_up_cnt, tx_bytes: station.wifi_down_cnt
	};

	/* What is not known is left out. */
	return Object.fromEntries(Object.entries({ ...JSON.parse(json), ...station.mac ? figures : {} }).filter(([ , value ]) => value !== null && value !== undefined));
}

/* N stations like it, told apart. */
function makeStations(n) {
	const example = exampleStation();

	return Array.from({ length: n }, (_, i) => ({
		...example,
		ssid: [ 'Lobby', 'Conference rooms', 'Guests' ][i % 3],
		ssid_ifname: [ 'ath0', 'ath1', 'ath01' ][i % 3],
		channel: [ 6, 36, 6 ][i % 3],
		version: [ '11n', '11ax', '11ac' ][i % 3],
		radio_id: i % 2,
		mac: '02:00:00:' + (i + 1).toString(16).padStart(6, '0').replace(/(..)(..)(..)/, '$1:$2:$3'),
		ip: `192.168.${1 + Math.floor(i / 250)}.${i % 250 + 2}`,
		name: [ `phone-${i}`, `Laptop of meeting room ${i}`, '-', `printer-${i}` ][i % 4],
		power: String(5 + (i * 7) % 60),
		flowup_rate_cnt: 1024 * (12 + i * 53 % 300),
		flowdown_rate_cnt: 1024 * (24 + i * 97 % 800),
		oltime: 5 + i * 631,
		online_ts: example.online_ts + i,
		wifi_up_cnt: 28350 * (i * i + 1),
		wifi_down_cnt: 119500 * (i * i + 1)
	}));
}

/* The catalogue of a language, message by message. */
function catalogue(language) {
	if (!language)
		return {};

	const messages = {};

	for (const [ , id, translation ] of read(APPLICATION, `po/${language}/wsmd.po`).matchAll(/^msgid (".+")\nmsgstr (".*")$/gm))
		messages[JSON.parse(id)] = JSON.parse(translation);

	return messages;
}

function readJSON(name) {
	return JSON.parse(read(APPLICATION, 'root/usr/share', name));
}

class Server {
	constructor() {
		this.stations = makeStations(3);
		this.running = true; // the daemon
		this.wsmd = true; // it has the object "wsmd"
		this.rich = null; // stations of "wsmd", in place of those made of `stations`
		this.login = 'write'; // 'read', 'none', 'expired'
		this.language = '';
		this.darkmode = false;
		this.bus = null; // URL of a real bus, in place of the answers below
		this.intercept = null; // (request's calls, response) => true when it has dealt with it
		this.calls = []; // [object, method, arguments] in their order
		this.sticky = false; // no client goes when it is disconnected
		this.port = 0;
	}

	async start() {
		this.http = http.createServer((request, response) => this.serve(request, response));
		await new Promise((resolve) => this.http.listen(this.port, '127.0.0.1', resolve));
		this.port = this.http.address().port;
	}

	async stop() {
		const closed = new Promise((resolve) => this.http.close(resolve));

		this.http.closeAllConnections();
		await closed;
	}

	get url() {
		return `http://127.0.0.1:${this.port}/cgi-bin/luci/${PAGE}`;
	}

	called(method) {
		return this.calls.filter(call => call[1] == method).map(call => call[2]);
	}

	serve(request, response) {
		const { pathname } = new URL(request.url, 'http://localhost');

		if (pathname == '/ubus/')
			return this.ubus(request, response);

		const send = (type, content) => response.writeHead(200, { 'Content-Type': type }).end(content);

		if (pathname == `/cgi-bin/luci/${PAGE}`)
			return send('text/html; charset=utf-8', this.page());

		if (pathname == '/standin.js')
			return send('text/javascript', read(__dirname, 'standin.js'));

		if (pathname == '/theme.css')
			return send('text/css', read(__dirname, 'theme.css'));

		if (pathname.startsWith('/luci-static/resources/icons/signal-')) {
			const strength = +pathname.match(/-(\d+)\.svg$/)[1];
			const bars = [ 25, 50, 75, 100 ].map((limit, i) =>
				`<rect x="${i * 4}" y="${12 - i * 4}" width="3" height="${4 + i * 4}" fill="${strength >= limit ? '#3b7' : '#999'}"/>`);

			return send('image/svg+xml', `<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 16 16">${bars.join('')}</svg>`);
		}

		const file = path.join(APPLICATION, 'htdocs', path.normalize(pathname));

		if (!fs.existsSync(file) || !fs.statSync(file).isFile())
			return response.writeHead(pathname == '/favicon.ico' ? 204 : 404).end();

		send('text/javascript', fs.readFileSync(file));
	}

	page() {
		const settings = {
			session: SESSION,
			view: readJSON('luci/menu.d/luci-app-wsmd.json')[PAGE].action.path,
			permission: { write: true, read: false }[this.login] ?? null,
			catalogue: catalogue(this.language)
		};

		return `<!DOCTYPE html><html lang="${this.language.replace('_', '-') || 'en'}" data-darkmode="${this.darkmode}"><head>
<meta charset="utf-8"><meta name="viewport" content="width=device-width, initial-scale=1"><title>LuCI</title>
<link rel="stylesheet" href="/theme.css">
<script type="application/json" id="settings">${JSON.stringify(settings).replace(/</g, '\\u003c')}</script></head>
<body><header><h1>OpenWrt</h1></header><main id="maincontent"><div id="view"><p class="spinning">Loading view…</p></div></main>
<div id="modal" role="dialog" aria-modal="true" aria-labelledby="modal-title" tabindex="-1" hidden></div>
<script src="/standin.js"></script></body></html>`;
	}

	ubus(request, response) {
		const chunks = [];

		request.on('data', chunk => chunks.push(chunk));
		request.on('end', async () => {
			const calls = JSON.parse(Buffer.concat(chunks).toString());

			for (const { params: [ , object, method, values ] } of calls)
				this.calls.push([ object, method, values ]);

			if (this.intercept?.(calls, response))
				return;

			const replies = Buffer.from(JSON.stringify(await Promise.all(calls.map(call => this.answer(call)))));
			const broken = Buffer.from(BROKEN);

			for (let at = replies.indexOf(broken); at >= 0; at = replies.indexOf(broken))
				replies.write('?\xff?', at, 'latin1');

			response.writeHead(200, { 'Content-Type': 'application/json' }).end(replies);
		});
	}

	async answer({ id, params: [ session, object, method, values ] }) {
		const frame = { jsonrpc: '2.0', id };

		if (this.bus && object != 'session' && session == SESSION && this.mayCall(object, method))
			return { ...frame, ...await this.askBus([ object, method, values ]) };

		if (![ 'session', ...this.running ? [ 'sta', ...this.wsmd ? [ 'wsmd' ] : [] ] : [] ].includes(object))
			return { ...frame, error: { code: -32000, message: 'Object not found' } };

		if (session != SESSION || !this.mayCall(object, method))
			return { ...frame, error: { code: -32002, message: 'Access denied' } };

		return { ...frame, result: this[`${object}_${method}`](values) };
	}

	/* A result or an error, as the web server would have it. */
	async askBus(call) {
		return (await fetch(this.bus, { method: 'POST', body: JSON.stringify(call) })).json();
	}

	/* Every login may ask about its session, as LuCI itself does; the rest is what the access file grants. */
	mayCall(object, method) {
		if (this.login == 'expired')
			return false;

		if (object == 'session')
			return true;

		const group = readJSON('rpcd/acl.d/luci-app-wsmd.json')['luci-app-wsmd'];
		const halves = { write: [ group.read, group.write ], read: [ group.read ], none: [] }[this.login];

		return halves.some(half => half.ubus?.[object]?.includes(method));
	}

	session_access({ scope }) {
		return [ 0, { access: scope != 'access-group' || this.login != 'none' } ];
	}

	wsmd_stations({ limit = 64, fields, after = '' }) {
		if (!Number.isInteger(limit) || limit < 1 || limit > 256 || typeof(after) != 'string' || (fields !== undefined && !Array.isArray(fields)))
			return [ 2, { error: 'invalid argument' } ];

		const all = this.rich ?? this.stations.map(richStation);
		const behind = all.filter(station => !(station?.mac <= after)).sort((a, b) => a?.mac < b?.mac ? -1 : 1);
		const page = behind.slice(0, limit).map(station => fields && station?.mac ? Object.fromEntries(fields.filter(name => name in station).map(name => [ name, station[name] ])) : station);

		return [ 0, { boot: '0123456789abcdef', seq: 7, total: all.length, stations: page, ...behind.length > limit ? { next: page.at(-1).mac } : {} } ];
	}

	/* An argument of another type counts as missing. */
	sta_get({ get_all_sta_status: status, get_sta_mac: mac, get_sta_count: wanted }) {
		if (typeof(status) != 'string')
			return [ -1 ];

		if (wanted !== undefined)
			return [ 0, { count: status == 'online' ? this.stations.length : '0' } ];

		const list = this.stations.filter(station => !mac || station.mac == mac);
		const reply = { online_list: list, count: String(list.length) };

		return JSON.stringify(reply).length > BUS_MESSAGE ? [ 11 ] : [ 0, reply ];
	}

	sta_delete({ mac, radio }) {
		if (!this.sticky)
			this.stations = this.stations.filter(station => station.mac !== mac || station.radio_id !== radio);

		return [ 0 ];
	}

	sta_set() {
		return [ 0 ];
	}
}

module.exports = { Server, makeStations, exampleStation, richStation, catalogue, readJSON, APPLICATION, BROKEN, PAGE };
