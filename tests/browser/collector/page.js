/* The collector's page in a browser: opening it, and reading it. */
'use strict';

const assert = require('assert/strict');
const { newPage, until, violations, stickingOut } = require('../browser.js');
const { Collector } = require('./server.js');

const ROW = '.body > .row';

/* What the browser itself prints about requests that fail. */
const FAILED_REQUEST = /^Failed to load resource/;

class Visit {
	/* `prepare` sets the collector up before the page is opened; `frozen`: the page's clock goes when it is told to. */
	static async with(browser, prepare, { stations = 3, address = '', frozen = false, ...options } = {}) {
		const self = new Visit();

		self.collector = new Collector(stations);
		await prepare?.(self.collector);
		await self.collector.start();
		self.page = await newPage(browser, options);

		if (frozen)
			await self.page.clock.install();

		await self.page.goto(self.collector.url + address);

		return self;
	}

	async rows(n) {
		await until(`${n} rows`, async () => await this.page.locator(ROW).count() == n);
	}

	/* Waits until the text above the table is `words`. */
	async says(words) {
		await until(words, async () => (await this.page.locator('.count').innerText()) == words);
	}

	async noticed(words) {
		await until(words, async () => (await this.page.locator('.notice').allInnerTexts()).join().includes(words));
	}

	async connection(words) {
		await until(words, async () => (await this.page.locator('#connection').innerText()) == words);
	}

	/* The texts of a column, from the top. */
	async column(name) {
		return this.page.locator(ROW).evaluateAll((rows, cell) =>
			rows.sort((a, b) => a.getAttribute('aria-rowindex') - b.getAttribute('aria-rowindex')).map(row => row.querySelector(cell).innerText), name);
	}

	/* Waits until the rows are one below the other; after a resize that takes until the next frame. */
	async stacked() {
		await until('rows that do not cover each other', async () => {
			const boxes = await this.page.locator(ROW).evaluateAll(rows => rows.map(row => row.getBoundingClientRect()).map(({ top, bottom }) => [ top, bottom ]).sort((a, b) => a[0] - b[0]));

			return boxes.every(([ top ], i) => i == 0 || top >= boxes[i - 1][1] - 0.5);
		});
	}

	async sound() {
		assert.deepEqual(await stickingOut(this.page, '.wide'), []);
		assert.deepEqual(await violations(this.page), []);
		assert.equal(await this.page.evaluate(() => window.hurt), undefined);
	}

	quiet(expected = /^$/) {
		assert.deepEqual(this.page.errors.filter(text => !expected.test(text)), []);
	}
}

/* One test: its name, what the collector has, what happens, what the console may hold. */
function test(name, { prepare, options, console: expected } = {}, body) {
	return {
		name,
		async run(browser) {
			const visit = await Visit.with(browser, prepare, options);

			try {
				await body(visit);
				visit.quiet(expected);
			}
			finally {
				await visit.page.context().close();
				await visit.collector.stop();
			}
		}
	};
}

module.exports = { test, Visit, ROW, FAILED_REQUEST };
