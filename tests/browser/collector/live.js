/* The page on the real collector. The runner gives: the program, an empty folder, and messages by name as base64. */
'use strict';

const assert = require('assert/strict');
const { spawn } = require('child_process');
const fs = require('fs');
const net = require('net');
const path = require('path');
const { FIRST_TABLE, firstTable, measured, newPage, picture, until, violations } = require('../browser.js');
const { ROW, FAILED_REQUEST } = require('./page.js');

class Real {
	constructor(told) {
		const { program, folder, messages } = told;

		Object.assign(this, { told, program, folder, messages, port: 0, socket: path.join(folder, 'socket') });
	}

	async start(...options) {
		let said = '';

		this.process = spawn(this.program, [ '--quiet', '--socket', this.socket, '--http', `127.0.0.1:${this.port}`, '--grace', '0', '--commit', '0',
			'--store', `sqlite:${path.join(this.folder, 'store')}`, ...options ], { stdio: [ 'ignore', 'ignore', 'pipe' ] });
		this.process.stderr.on('data', (data) => { said += data; });
		this.ended = new Promise((resolve) => this.process.on('exit', resolve));

		if (!this.port)
			this.port = +(await until('a port', () => said.match(/http: port (\d+)/)))[1];

		await until('a collector that listens', () => fetch(`http://127.0.0.1:${this.port}/`).then(() => true, () => false));
		await until('its socket', () => fs.existsSync(this.socket));
	}

	async stop() {
		this.process.kill('SIGTERM');
		await this.ended;
	}

	send(name) {
		return new Promise((resolve, reject) => {
			const peer = net.connect(this.socket, () => peer.end(Buffer.from(this.messages[name], 'base64')));

			peer.on('close', resolve).on('error', reject).resume();
		});
	}

	get url() {
		return `http://127.0.0.1:${this.port}/`;
	}
}

/* One test with a collector and a page. */
function test(name, options, body) {
	return {
		name,
		async run(browser, told) {
			const real = new Real(told);
			const page = await newPage(browser);

			try {
				await real.start(...options(told));
				await body(real, page);
			}
			finally {
				await page.context().close();
				await real.stop();
			}
		}
	};
}

const rows = (page, n) => until(`${n} rows`, async () => await page.locator(ROW).count() == n);

module.exports = [
	test('stations come, roam and leave, and a restart does not stop the page', () => [], async (real, page) => {
		await page.goto(real.url);
		await until('nobody', async () => await page.locator('.empty').innerText() == 'No station is here.');
		await real.send('first');
		await rows(page, 1);
		await real.send('hostile');
		await rows(page, 2);
		assert.ok((await page.locator(`${ROW} .network bdi`).allInnerTexts()).includes('<img src=x onerror="window.hurt=1">\\xff\\n'));
		await real.send('roamed');
		await until('the other radio', async () => (await page.locator(ROW).first().innerText()).includes('radio 1 · 1 roam'));
		assert.deepEqual(await violations(page), []);
		assert.deepEqual(page.errors, []);

		await real.stop();
		await until('the notice', () => page.locator('.notice').isVisible());
		await real.start();
		await until('a connection', async () => await page.locator('#connection').innerText() == 'Live');
		await rows(page, 2);
		await real.send('left');
		await rows(page, 1);
		assert.equal(await page.evaluate(() => window.hurt), undefined);
		assert.deepEqual(page.errors.filter(text => !FAILED_REQUEST.test(text)), []);
	}),

	test('the store tells of a station and of access points', () => [], async (real, page) => {
		for (const name of [ 'first', 'hostile', 'roamed', 'left' ])
			await real.send(name);

		await until('the store', async () => (await (await fetch(`${real.url}api/v1/changes`)).json()).some(({ kind }) => kind == 'left'));
		await page.goto(`${real.url}#/station/02:00:00:00:00:01`);
		await until('its roam', async () => await page.locator('.piece').count() >= 2);
		assert.ok((await page.getByRole('table', { name: 'Departures' }).innerText()).includes('deauth recv'));
		assert.deepEqual(await violations(page), []);
		await page.goto(`${real.url}#/access-points`);
		await until('the reasons', async () => (await page.locator('.cards').innerText()).includes('deauth recv'));
		await until('the access point', async () => await page.locator('.ap').count() == 1);
		assert.deepEqual(await violations(page), []);
		assert.deepEqual(page.errors, []);
	}),

	/* The store has a week; the runner gives the names and the stations' next reports: {options, updates: [base64]}. */
	test('pictures of a week', ({ options }) => options, async (real, page) => {
		const { updates } = real.told;

		await page.goto(real.url);
		await until('rows', () => page.locator(ROW).count());
		await until('a connection', async () => await page.locator('#connection').innerText() == 'Live');

		for (real.messages.next of updates)
			await real.send('next');

		await until('trends', () => page.locator('.trend polyline:is(.rising, .falling)').count());
		await until('the last report', async () => (await (await fetch(`${real.url}api/v1/status`)).json()).reports == updates.length);
		await page.mouse.move(2, 2);
		await picture(page, 'collector-stations');

		await page.emulateMedia({ colorScheme: 'dark' });
		await page.setViewportSize({ width: 1280, height: 1000 });

		const here = await (await fetch(`${real.url}api/v1/stations`)).json();
		const { mac } = here.find(({ name, roams }) => name && roams > 1) ?? here[0];

		await page.goto(`${real.url}#/station/${mac}`);
		await until('its week', async () => await page.locator('.piece').count() > 10 && await page.locator('.plot .line').count() > 10);
		await page.locator('#connection[data-phase="live"]').waitFor();
		assert.deepEqual(await violations(page), []);
		await picture(page, 'collector-station');

		await page.emulateMedia({ colorScheme: 'light' });
		await page.goto(`${real.url}#/access-points`);
		await until('three access points', async () => await page.locator('.ap').count() == 3);
		await until('their week', async () => await page.locator('.plot .line').count() >= 15);
		assert.deepEqual(await violations(page), []);
		await picture(page, 'collector-access-points');
		assert.deepEqual(page.errors, []);
	}),

	/* The stations are in the store; the runner gives their names: {options}. */
	test('the first rows of ten thousand', ({ options }) => options, async (real, page) => {
		await page.goto(`${real.url}#/stations?sort=station&direction=descending`);
		await until('rows', () => page.locator(ROW).count());

		const { time, page: files, list, unpackedPage, unpackedList } = await firstTable(page);

		measured(`first table of 10000 stations of the real collector: ${Math.round(time)} ms; ${files} bytes of page (${unpackedPage} unpacked), ` +
			`${list} bytes of answers (${unpackedList} unpacked)`);
		assert.ok(files < unpackedPage / 2 && list < unpackedList / 2, `${files} and ${list} bytes: not compressed`);
		assert.ok(files > 10000 && list > 5000, `${files} and ${list} bytes: not all was measured`);
		assert.ok(files + list <= FIRST_TABLE, `${files} and ${list} bytes`);

		const names = () => page.locator(ROW).evaluateAll(all => all.map(row => row.querySelector('.name').textContent).sort());
		const first = await names();

		await until('all of them', async () => await page.locator('.count').innerText() == '10,000 stations');
		assert.ok(first.includes('A name of station 9999'));
		assert.deepEqual(await names(), first, 'the collector and the page have the same order');
		await page.getByRole('searchbox').fill('10.1.39.15 "Network 6"');
		await until('nobody', async () => await page.locator('.count').innerText() == '0 of 10,000 stations');
		await page.getByRole('searchbox').fill('10.1.39.15 network');
		await until('the one', async () => await page.locator('.count').innerText() == '1 of 10,000 stations');
		assert.deepEqual(await names(), [ 'A name of station 9999' ]);
		assert.deepEqual(page.errors, []);
	}),

	test('a token in the address opens the page', ({ folder }) => [ '--token-file', path.join(folder, 'token') ], async (real, page) => {
		await real.send('first');
		await page.goto(real.url);
		assert.ok((await page.locator('body').innerText()).includes('a token is needed'));
		await page.goto(`${real.url}?token=a-token_of.letters-0123456789`);
		await rows(page, 1);
		assert.equal(new URL(page.url()).search, '', 'the token has left the address');
		assert.deepEqual(page.errors.filter(text => !FAILED_REQUEST.test(text)), []);
	})
];
