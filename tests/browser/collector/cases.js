/* Every test of the collector's page, by its name. */
'use strict';

module.exports = [
	...require('./looks.js'),
	...require('./views.js'),
	...require('./changes.js'),
	...require('./trouble.js'),
	...require('./life.js')
];
