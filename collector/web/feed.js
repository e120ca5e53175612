/* The lines of an event stream. Pure. */

export class EventLines {
	#rest = '';
	#data = [];

	/* The data of each event that ends within this text, parsed; comments and other fields are not told. */
	take(text) {
		const events = [];
		const lines = (this.#rest + text).split('\n');

		this.#rest = lines.pop();

		for (const line of lines) {
			if (line.startsWith('data: ')) {
				this.#data.push(line.slice(6));
			}
			else if (line === '') {
				if (this.#data.length)
					events.push(JSON.parse(this.#data.join('\n')));

				this.#data = [];
			}
		}

		return events;
	}
}
