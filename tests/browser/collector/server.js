/*
 * A collector for the page's tests that stalls, refuses and ends when it is told to. The files, headers and answers are those
 * of the real one (collector/http), with which test_collector_page.py runs the page as well.
 */
'use strict';

const fs = require('fs');
const http = require('http');
const path = require('path');
const { chosen, makeStations } = require('./stations.js');

const WEB = path.resolve(__dirname, '../../../collector/web');
const TYPES = { '.html': 'text/html; charset=utf-8', '.js': 'text/javascript; charset=utf-8', '.css': 'text/css; charset=utf-8', '.svg': 'image/svg+xml' };
const HEADERS = {
	'Cache-Control': 'no-store', 'X-Content-Type-Options': 'nosniff', 'X-Frame-Options': 'DENY', 'Referrer-Policy': 'no-referrer',
	'Cross-Origin-Resource-Policy': 'same-origin',
	'Content-Security-Policy': "default-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"
};

class Collector {
	constructor(stations = 3) {
		this.stations = makeStations(stations);
		this.answers = {}; // path below /api/v1/ to what it answers, or a function of its arguments
		this.trouble = {}; // path to a status, to 'stall' (no answer) or to 'hold' (answered by release()); "stations?": with arguments
		this.held = [];
		this.streams = new Set();
		this.bytes = 0; // of all bodies
		this.port = 0;
		this.asked = [];
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
		return `http://127.0.0.1:${this.port}/`;
	}

	/* To all streams: a station as it is now. */
	tell(kind, station, more = {}) {
		const line = `event: ${kind}\ndata: ${JSON.stringify({ kind, at: Date.now() / 1000, ...more, station })}\n\n`;

		for (const stream of this.streams)
			stream.write(line);
	}

	/* A report of the n-th station. */
	report(n, values = {}) {
		const station = this.stations[n];

		Object.assign(station, { reports: station.reports + 1, seen: Date.now() / 1000 }, values);
		this.tell(values.kind ?? 'updated', station);
	}

	/* Answers what was held, with the state at the time of the request. */
	release() {
		for (const [ response, body ] of this.held.splice(0))
			this.send(response, 200, 'application/json', body);
	}

	send(response, status, type, body) {
		this.bytes += Buffer.byteLength(body);
		response.writeHead(status, { 'Content-Type': type, ...HEADERS }).end(body);
	}

	serve(request, response) {
		const { pathname, searchParams } = new URL(request.url, 'http://localhost');

		if (!pathname.startsWith('/api/v1/')) {
			const file = path.join(WEB, pathname == '/' ? 'index.html' : path.normalize(pathname));

			if (!fs.existsSync(file))
				return this.send(response, 404, 'application/json', '{"error":"nothing is there"}');

			return this.send(response, 200, TYPES[path.extname(file)], fs.readFileSync(file));
		}

		const what = pathname.slice('/api/v1/'.length);
		const given = Object.fromEntries(searchParams);
		const trouble = this.trouble[what == 'stations' && searchParams.size ? 'stations?' : what];

		this.asked.push(what);

		if (trouble == 'stall')
			return;

		if (trouble == 'hold')
			return this.held.push([ response, JSON.stringify(this.answer(what, given)) ]);

		if (trouble)
			return this.send(response, trouble, 'application/json', JSON.stringify({ error: trouble == 401 ? 'a token is needed' : 'the store does not answer' }));

		if (what == 'events') {
			response.writeHead(200, { 'Content-Type': 'text/event-stream', ...HEADERS });
			response.write('retry: 2000\n\n');
			this.streams.add(response);
			response.on('close', () => this.streams.delete(response));
			return;
		}

		const answer = this.answer(what, given);

		this.send(response, answer === undefined ? 404 : 200, 'application/json', JSON.stringify(answer ?? { error: 'there is no store' }));
	}

	answer(what, given) {
		if (what in this.answers)
			return typeof this.answers[what] == 'function' ? this.answers[what](given) : this.answers[what];

		if (what == 'status')
			return { now: Date.now() / 1000, started: Date.now() / 1000 - 5000, history: 'sessions' in this.answers, stations: this.stations.length, reports: 0, wrong_size: 0, impossible: 0, late: 0, outputs: [] };

		if (what == 'stations')
			return chosen(this.stations, given);

		if (what.startsWith('stations/') && !what.slice(9).includes('/'))
			return this.stations.find(station => station.mac == what.slice(9));

		return undefined;
	}
}

module.exports = { Collector };
