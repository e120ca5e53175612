/* Which rows of a long list are in the document. Pure. */

const BEYOND = 8; // rows above and below what is seen

/* The first row, and the one behind the last. */
export function rowsInView(top, height, rowHeight, count) {
	const first = Math.floor(Math.max(0, top) / rowHeight) - BEYOND;
	const last = Math.ceil((Math.max(0, top) + height) / rowHeight) + BEYOND;

	return [ Math.max(0, Math.min(first, count)), Math.max(0, Math.min(last, count)) ];
}
