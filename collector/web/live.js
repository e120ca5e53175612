/*
 * Keeps the model true: opens the stream of changes, then asks for the whole list, then lets the changes follow that came
 * meanwhile. After a break it does so again. The stream has a comment every ten seconds, so silence is a break, too; the
 * browser's own EventSource does not tell of comments, nor why it was refused.
 *
 * A page that has just been opened is shown what it begins with, before a list of thousands is on its way.
 */
import { EventLines } from './feed.js';
import { Refusal, get, open, why } from './api.js';

const SILENCE = 25000; // ms
const RETRIES = [ 1000, 2000, 4000, 8000 ]; // ms; the last one goes on
const POLL = 5000; // ms, while the collector has no stream to give
const HIDDEN = 60000; // ms; a page that nobody sees needs no stream
const UNDRAWN = 5000; // ms; nor has it frames to wait for

/* When what has changed is in the document. */
function drawn() {
	return new Promise((resolve) => {
		requestAnimationFrame(() => setTimeout(resolve));
		setTimeout(resolve, UNDRAWN);
	});
}

export class Live {
	/*
	 * `told` is called with each state: {phase: loading | live | polling | lost | hidden, words}; `changed` after each change.
	 * `first` gives the question for the stations that are shown first, with its limit, or null where all are needed.
	 */
	constructor(model, { told, changed, first }) {
		this.model = model;
		this.told = told;
		this.changed = changed;
		this.first = first;
		this.ahead = 0; // the collector's clock less ours, seconds
		this.known = false; // there was a list once
		this.of = null; // how many stations there are, while the model has the first ones only
		this.hiddenLong = false; // nobody has seen the page for a minute
		this.stop = new AbortController();
	}

	/* The collector's time. */
	now() {
		return Date.now() / 1000 + this.ahead;
	}

	async run() {
		let failures = 0;

		document.addEventListener('visibilitychange', () => this.#seen());
		window.addEventListener('online', () => this.#wake?.());

		for (;;) {
			try {
				await this.#follow(() => { failures = 0; });
			}
			catch (error) {
				if (!this.hiddenLong && !await this.#poll(error)) {
					this.told({ phase: 'lost', words: why(error) });
					await this.#rest(RETRIES[Math.min(failures++, RETRIES.length - 1)]);
				}
			}

			while (document.hidden && this.hiddenLong) {
				this.told({ phase: 'hidden', words: 'Paused' });
				await this.#rest(HIDDEN);
			}
		}
	}

	#wake = null;
	#hiding = 0;

	#rest(time) {
		return new Promise((resolve) => {
			const timer = setTimeout(resolve, time);

			this.#wake = () => { clearTimeout(timer); resolve(); };
		});
	}

	#seen() {
		clearTimeout(this.#hiding);

		if (document.hidden) {
			this.#hiding = setTimeout(() => {
				this.hiddenLong = true;
				this.stop.abort();
			}, HIDDEN);
		}
		else if (this.hiddenLong) {
			this.hiddenLong = false;
			this.#wake?.();
		}
	}

	/* Ends by an exception, whatever the reason. */
	async #follow(arrived) {
		const attempt = this.stop = new AbortController();
		const quiet = () => attempt.abort(new DOMException('silence', 'TimeoutError'));
		let watch = setTimeout(quiet, SILENCE);

		try {
			const response = await open('events', attempt.signal);
			const reader = response.body.pipeThrough(new TextDecoderStream()).getReader();
			const lines = new EventLines();
			let waiting = [];

			this.#load(attempt.signal).then(() => {
				for (const event of waiting)
					this.model.apply(event);

				waiting = null;
				arrived();
				this.told({ phase: 'live', words: 'Live' });
				this.changed();
			}).catch((error) => attempt.abort(error));

			for (;;) {
				const { done, value } = await reader.read();

				if (done)
					throw new TypeError('the stream has ended');

				clearTimeout(watch);
				watch = setTimeout(quiet, SILENCE);

				for (const event of lines.take(value))
					waiting ? waiting.push(event) : this.model.apply(event);

				if (!waiting)
					this.changed();
			}
		}
		finally {
			clearTimeout(watch);
			attempt.abort();
		}
	}

	async #load(signal) {
		const question = this.known ? null : this.first();
		const [ status, stations ] = await Promise.all([ get('status', {}, signal), this.#some(question, signal) ]);

		this.ahead = status.now - Date.now() / 1000;
		this.status = status;
		this.known = true;
		this.model.replace(stations);

		if (!question || stations.length >= status.stations)
			return;

		this.of = status.stations;
		this.changed();
		await drawn();
		this.model.replace(await get('stations', {}, signal));
		this.of = null;
	}

	/* What an address asks for may be more than the collector understands; the page finds it by itself then. */
	async #some(question, signal) {
		try {
			return await get('stations', question ?? {}, signal);
		}
		catch (error) {
			if (question && error instanceof Refusal && error.status == 400)
				return get('stations', {}, signal);

			throw error;
		}
	}

	/* Where streams are all taken, the list alone is asked for. */
	async #poll(error) {
		if (!(error instanceof Refusal) || error.status != 503)
			return false;

		try {
			await this.#load(null);
		}
		catch {
			return false;
		}

		this.told({ phase: 'polling', words: 'Renewed every 5 s' });
		this.changed();
		await this.#rest(POLL);

		return true;
	}
}
