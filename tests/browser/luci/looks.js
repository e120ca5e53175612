/* How the page looks: widths, light and dark, languages, hostile texts. */
'use strict';

const assert = require('assert/strict');
const { picture, until } = require('../browser.js');
const { makeStations, BROKEN } = require('./server.js');
const { test, ROW } = require('./page.js');

const cases = [];

for (const width of [ 375, 1280, 2560 ])
	for (const dark of [ false, true ])
		for (const n of [ 0, 3, 120 ]) {
			const colours = dark ? 'dark' : 'light';

			cases.push(test(`${n} clients at ${width} pixels in ${colours} fit in, and axe-core finds nothing`, {
				prepare(server) { server.stations = makeStations(n); },
				options: { width, dark }
			}, async (clients) => {
				if (n)
					await clients.rows(n);
				else
					await clients.placeholder('No client is connected.');

				assert.match(await clients.page.innerText('#view'), new RegExp(`Clients: ${n}\\b`));
				await clients.shown();
				await picture(clients.page, `luci-${n}-${width}-${colours}`);
			}));
		}

cases.push(test('at 1280 pixels name, addresses and SSID of each client are seen whole', {
	prepare(server) {
		server.stations = makeStations(12);
		server.stations[0].ip = '255.255.255.255';
		server.stations[1].name = 'The long name of a laptop in a meeting room';
		server.stations[2].ssid = 'A network with all 32 characters';
	}
}, async (clients) => {
	await clients.rows(12);

	for (const station of clients.server.stations) {
		const row = clients.page.locator(ROW).filter({ hasText: station.mac });

		for (const words of [ station.name == '-' ? station.mac : station.name, station.mac, station.ip, station.ssid ]) {
			const place = row.getByText(words, { exact: true }).first();

			await place.scrollIntoViewIfNeeded();

			const box = await place.boundingBox();

			assert.ok(box.x >= 0 && box.x + box.width <= 1280, `${words}: ${box.x} and ${box.width} wide`);
			assert.ok(await place.evaluate((node) => {
				return [ ...node.getClientRects() ]
					.every(({ x, y, width, height }) => node.contains(document.elementFromPoint(x + width / 2, y + height / 2)));
			}), `${words} is covered`);
		}
	}
}));

for (const [ language, title, button ] of [ [ 'de', 'WLAN-Clients', 'Trennen' ], [ 'zh_Hans', '无线客户端', '断开连接' ] ])
	for (const width of [ 375, 1280 ])
		cases.push(test(`the page speaks the language ${language} at ${width} pixels`, {
			prepare(server) { server.language = language; },
			options: { width }
		}, async (clients) => {
			await clients.rows(3);
			assert.equal(await clients.page.innerText('h2'), title);
			assert.equal(await clients.button('phone-0').innerText(), button);
			await clients.shown();
			await picture(clients.page, `luci-${language}-${width}`);
		}));

const HOSTILE = [
	'<img src=x onerror="window.attacked = 1">',
	'"\'><script>window.attacked = 1</script>',
	'&lt;b&gt;bold&lt;/b&gt; %s %d %h',
	'\u202eecnuob\u202d \u0627\u0644\u0637\u0627\u0628\u0642',
	'\u{1f600}'.repeat(32),
	`caf${BROKEN} au lait`,
	'x'.repeat(128),
	'${window.attacked = 1}\u0000\u001b[31m\r\n'
];

for (const width of [ 375, 1280 ])
	cases.push(test(`hostile names and SSIDs are text and nothing else at ${width} pixels`, {
		prepare(server) {
			server.stations = makeStations(HOSTILE.length);
			HOSTILE.forEach((name, i) => Object.assign(server.stations[i], {
				name, ssid: name.slice(0, 64), ssid_ifname: HOSTILE[0], ip: i ? '' : HOSTILE[0]
			}));
		},
		options: { width }
	}, async (clients) => {
		const { page, server } = clients;

		await clients.rows(HOSTILE.length);

		const seen = await page.locator(`:is(${ROW}) td:first-child bdi`).evaluateAll(nodes => nodes.map(node => node.textContent));

		assert.deepEqual(seen.sort(), HOSTILE.map(name => name.replace(BROKEN, '?\ufffd?').trim()).sort());
		await clients.shown();

		for (const station of server.stations) {
			await clients.button(station.mac).click();
			assert.match(await clients.dialog().innerText(), new RegExp(station.mac));
			assert.ok((await clients.dialog().locator('bdi').first().evaluate(node => node.childElementCount)) == 0);
			await clients.shown();

			if (station == server.stations[0])
				await picture(page, `luci-hostile-${width}`);

			await page.keyboard.press('Escape');
			await until('the dialog is closed', async () => !await clients.dialog().isVisible());
		}

		assert.equal(await page.locator('#view script, #view img:not([src^="/luci-static/resources/icons/"])').count(), 0);
		assert.equal(await page.evaluate(() => window.attacked), undefined);
	}));

module.exports = cases;
