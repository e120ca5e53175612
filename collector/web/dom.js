/* Elements. Texts become text nodes, never markup, whoever wrote them. */

const SVG = 'http://www.w3.org/2000/svg';

function fill(node, attributes, children) {
	for (const [ name, value ] of Object.entries(attributes ?? {})) {
		if (name.startsWith('on'))
			node.addEventListener(name.slice(2), value);
		else if (value === true)
			node.setAttribute(name, '');
		else if (value !== null && value !== undefined && value !== false)
			node.setAttribute(name, value);
	}

	node.append(...children.flat().filter(child => child !== null && child !== undefined && child !== ''));

	return node;
}

export function h(tag, attributes, ...children) {
	return fill(document.createElement(tag), attributes, children);
}

export function svg(tag, attributes, ...children) {
	return fill(document.createElementNS(SVG, tag), attributes, children);
}

/* What a stranger has named: its writing direction stays its own. */
export function foreign(text, attributes) {
	return h('bdi', { title: text, ...attributes }, text);
}

export function setText(node, text) {
	if (node.textContent !== text)
		node.textContent = text;
}
