/* The collector's HTTP interface, which docs/collector.md describes. */

const PATIENCE = 30000; // ms

export class Refusal extends Error {
	constructor(status, words) {
		super(words);
		this.status = status;
	}
}

async function refused(response) {
	let words = `status ${response.status}`;

	try {
		words = (await response.json()).error ?? words;
	}
	catch {
		/* A proxy's own words are no JSON. */
	}

	return new Refusal(response.status, String(words));
}

export async function open(path, signal) {
	const response = await fetch(`/api/v1/${path}`, { signal, cache: 'no-store' });

	if (!response.ok)
		throw await refused(response);

	return response;
}

/* The answer's JSON; throws a Refusal, or what fetch throws when nobody answers in time. */
export async function get(path, parameters = {}, signal = null) {
	const query = new URLSearchParams(Object.entries(parameters).map(([ name, value ]) => [ name, String(value) ]));
	const attempt = new AbortController();
	const give = () => attempt.abort(signal.reason);
	const limit = setTimeout(() => attempt.abort(new DOMException('no answer', 'TimeoutError')), PATIENCE);

	signal?.addEventListener('abort', give);

	try {
		return await (await open(`${query}` ? `${path}?${query}` : path, attempt.signal)).json();
	}
	finally {
		clearTimeout(limit);
		signal?.removeEventListener('abort', give);
	}
}

/* Why something could not be had, in a sentence. */
export function why(error) {
	if (error instanceof Refusal) {
		if (error.status == 401)
			return 'The collector asks for a token: open this page once as /?token=TOKEN.';

		return `The collector answers: ${error.message}.`;
	}

	return error?.name == 'TimeoutError' ? 'The collector does not answer in time.' : 'The collector cannot be reached.';
}
