/*
 * Runs tests in a browser for pytest. A line on the standard input is JSON: suite, name, and further data for the test; the
 * answer is a line of JSON: null when the test has passed, else what went wrong. With --list SUITE: the names as a list,
 * without a browser.
 */
'use strict';

const readline = require('readline');

const suites = {
	'luci': './luci/cases.js', 'luci-live': './luci/live.js',
	'collector': './collector/cases.js', 'collector-live': './collector/live.js'
};

function load(suite) {
	return require(suites[suite]);
}

if (process.argv[2] == '--list') {
	process.stdout.write(JSON.stringify(load(process.argv[3]).map(({ name }) => name)) + '\n');
	process.exit(0);
}

async function main() {
	const { launch } = require('./browser.js');
	const browser = await launch();

	for await (const line of readline.createInterface({ input: process.stdin })) {
		const [ suite, name, told ] = JSON.parse(line);
		let answer = null;

		try {
			await load(suite).find(test => test.name == name).run(browser, told);
		}
		catch (error) {
			answer = String(error.stack ?? error);
		}

		for (const context of browser.contexts())
			await context.close();

		process.stdout.write(JSON.stringify(answer) + '\n');
	}

	await browser.close();
	process.exit(0); // even if a test has left something open
}

main().catch((error) => {
	process.stderr.write(`${error.stack ?? error}\n`);
	process.exit(1);
});
