/* A station of which a test says what matters to it. */
export const station = (values) => ({ id: 1, mac: '02:00:00:00:00:01', name: '', ssid: '', ap: '', ip: '', radio: 0, channel: 1, reports: 1, signal: -50, signal_mean: -50, began: 0, ...values });
