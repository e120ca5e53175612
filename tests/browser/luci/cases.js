/* Every test of the page, by its name. */
'use strict';

module.exports = [
	...require('./looks.js'),
	...require('./figures.js'),
	...require('./changes.js'),
	...require('./trouble.js'),
	...require('./life.js')
];
