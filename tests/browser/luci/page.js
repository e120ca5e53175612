/* The page "Wireless clients" in a browser: opening it, reading it, and letting its time pass. */
'use strict';

const assert = require('assert/strict');
const { newPage, until, violations, stickingOut } = require('../browser.js');
const { Server } = require('./server.js');

const ROW = '#wsmd-clients .cbi-rowstyle-1, #wsmd-clients .cbi-rowstyle-2';

class Clients {
	/* `prepare` sets the server up before the page is opened. */
	static async with(browser, prepare, options = {}) {
		const self = new Clients();

		self.server = new Server();
		self.server.darkmode = options.dark ?? false;
		await prepare?.(self.server);
		await self.server.start();
		self.page = await newPage(browser, options);
		await self.page.goto(self.server.url);

		return self;
	}

	/* Lets the time of its polls pass; what they have fetched is then in the page. */
	async pass(seconds) {
		await this.page.evaluate((n) => window.pass(n), seconds);
	}

	/* The same when no answer will come. */
	async passWithoutAnswer(seconds) {
		await this.page.evaluate((n) => window.pass(n, false), seconds);
	}

	async rows(n) {
		await until(`${n} rows`, async () => await this.page.locator(ROW).count() == n);
	}

	async placeholder(words) {
		await until(words, async () => (await this.page.locator('#wsmd-clients .placeholder').allInnerTexts()).join().trim() == words);
	}

	/* Waits for words in the box above the table; '' for no box. */
	async says(words) {
		await until(words || 'no message', async () => {
			const said = await this.page.locator('#wsmd-state').innerText();

			return words ? said.includes(words) : said == '';
		});
	}

	/* The texts of the row with this text in it, cell by cell. */
	async row(having) {
		return (await this.page.locator(ROW).filter({ hasText: having }).locator('td').allInnerTexts())
			.map(words => words.replace(/\u00a0/g, ' ').trim());
	}

	column(n) {
		return this.page.locator('#wsmd-clients').locator(`td:nth-child(${n})`).allInnerTexts();
	}

	button(having) {
		return this.page.locator(ROW).filter({ hasText: having }).locator('button');
	}

	dialog() {
		return this.page.locator('#modal');
	}

	notices() {
		return this.page.locator('#maincontent > .alert-message').allInnerTexts();
	}

	async shown() {
		assert.deepEqual(await stickingOut(this.page), []);
		assert.deepEqual(await violations(this.page), []);
	}

	/* `expected`: what the browser itself prints about requests that fail. */
	quiet(expected = /^$/) {
		assert.deepEqual(this.page.errors.filter(text => !expected.test(text)), []);
	}
}

/* One test: its name, what the server has, what happens, what the console may hold. */
function test(name, { prepare, options, console: expected } = {}, body) {
	return {
		name,
		async run(browser, told) {
			const clients = await Clients.with(browser, (server) => prepare?.(server, told), options);

			try {
				await body(clients);
				clients.quiet(expected);
			}
			finally {
				await clients.page.context().close();
				await clients.server.stop();
			}
		}
	};
}

module.exports = { test, ROW };
