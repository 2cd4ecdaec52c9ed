// SPDX-License-Identifier: Apache-2.0

// Which records are shown, and how many there are of each kind.

const FACETS = ['level', 'event', 'service', 'path'];
const FAILS = {level: 1, event: 2, service: 4, path: 8, search: 16, time: 32, state: 64};

class Filter {
    constructor(log) {
        this.log = log;
        this.haystacks = new Map();
        this.clear();
    }

    clear() {
        this.chosen = Object.fromEntries(FACETS.map((facet) => [facet, new Set()]));
        this.needle = '';
        this.from = -Infinity;
        this.to = Infinity;
        this.onlyDamage = false;
    }

    get isTimeLimited() {
        return this.from > -Infinity || this.to < Infinity;
    }

    get isActive() {
        return this.isTimeLimited || this.needle !== '' || this.onlyDamage
            || FACETS.some((facet) => this.chosen[facet].size > 0);
    }

    toggle(facet, index) {
        const chosen = this.chosen[facet];
        if (!chosen.delete(index)) {
            chosen.add(index);
        }
    }

    search(text) {
        this.needle = text.trim().toLowerCase();
    }

    /** What is searched in, of all records, in the present language. */
    haystack() {
        const {log} = this;
        if (!this.haystacks.has(log.language)) {
            const texts = new Array(log.records);
            for (let row = 0; row < log.records; row += 1) {
                const event = log.eventOf(row);
                texts[row] = `${log.message(row)}\n${eventLabel(event)}\n${event.id}\n${
                    log.pathText(row)}\n${event.service}`.toLowerCase();
            }
            this.haystacks.clear();
            this.haystacks.set(log.language, texts);
        }
        return this.haystacks.get(log.language);
    }

    /** By index: whether an entry of a facet may be shown; null where all may. */
    admitted(facet, size) {
        if (this.chosen[facet].size === 0) {
            return null;
        }
        const admitted = new Uint8Array(size);
        this.chosen[facet].forEach((index) => {
            admitted[index] = 1;
        });
        return admitted;
    }

    failsOf() {
        const {log, needle} = this;
        const sizes = {level: log.levels.length, event: log.events.length,
                       service: log.services.length, path: log.paths.length};
        const tests = FACETS.map((facet) => ({
            column: log[facet], bit: FAILS[facet], admitted: this.admitted(facet, sizes[facet]),
        })).filter(({admitted}) => admitted);
        const haystack = needle ? this.haystack() : null;
        const isTimeLimited = this.isTimeLimited;
        const fails = new Uint8Array(log.records);
        for (let row = 0; row < log.records; row += 1) {
            let bits = 0;
            for (const {column, bit, admitted} of tests) {
                bits |= admitted[column[row]] ? 0 : bit;
            }
            if (haystack && !haystack[row].includes(needle)) {
                bits |= FAILS.search;
            }
            if (isTimeLimited && !this.admitsTime(row)) {
                bits |= FAILS.time;
            }
            if (this.onlyDamage && !log.states.has(row)) {
                bits |= FAILS.state;
            }
            fails[row] = bits;
        }
        return fails;
    }

    admitsTime(row) {
        const time = this.log.time(row);
        return this.log.isTimeSure(row) && time >= this.from && time <= this.to;
    }

    /**
     * Works out the rows that are shown, in the log's order; those that would be without the
     * limits of time; and for each facet how many there would be without its own choice.
     */
    run() {
        const {log} = this;
        const fails = this.failsOf();
        const rows = new Uint32Array(log.records);
        const untimed = new Uint32Array(log.records);
        const counts = {level: new Uint32Array(log.levels.length),
                        event: new Uint32Array(log.events.length),
                        service: new Uint32Array(log.services.length),
                        path: new Uint32Array(log.paths.length)};
        const {level, event, service, path} = counts;
        let count = 0;
        let untimedCount = 0;
        for (let row = 0; row < log.records; row += 1) {
            const bits = fails[row];
            if (bits === 0) {
                rows[count] = row;
                count += 1;
            }
            if ((bits & ~FAILS.time) === 0) {
                untimed[untimedCount] = row;
                untimedCount += 1;
            }
            level[log.level[row]] += (bits & ~FAILS.level) === 0 ? 1 : 0;
            event[log.event[row]] += (bits & ~FAILS.event) === 0 ? 1 : 0;
            service[log.service[row]] += (bits & ~FAILS.service) === 0 ? 1 : 0;
            path[log.path[row]] += (bits & ~FAILS.path) === 0 ? 1 : 0;
        }
        return {rows: rows.slice(0, count), untimed: untimed.slice(0, untimedCount), counts};
    }

    /** Whether a gap or a damage lies in the time shown. */
    admitsMark(mark) {
        return !this.isTimeLimited || (mark.time >= this.from && mark.time <= this.to);
    }
}

/** Sorts rows by a column, stable; of a table's texts, each is compared once. */
function sortRows(log, rows, key, isDescending) {
    const sorted = [...rows];
    const rankOf = (texts) => {
        const order = texts.map((text, index) => index).sort((a, b) => compareTexts(texts[a], texts[b]));
        const ranks = new Float64Array(texts.length);
        order.forEach((index, rank) => {
            ranks[index] = rank;
        });
        return ranks;
    };
    const byColumn = (column, ranks) => (a, b) => ranks[column[a]] - ranks[column[b]];
    const comparisons = {
        number: () => (a, b) => a - b,
        time: () => (a, b) => log.seconds[a] - log.seconds[b] || log.microseconds[a] - log.microseconds[b],
        level: () => (a, b) => log.level[a] - log.level[b],
        event: () => byColumn(log.event, rankOf(log.events.map(eventLabel))),
        path: () => byColumn(log.path, rankOf(log.paths)),
        message: () => {
            // By code units: a hundred thousand texts take seconds by the rules of a language.
            const messages = [];
            sorted.forEach((row) => {
                messages[row] = log.message(row).toLowerCase();
            });
            return (a, b) => (messages[a] < messages[b] ? -1 : Number(messages[a] > messages[b]));
        },
    };
    const compare = comparisons[key]();
    const sign = isDescending ? -1 : 1;
    return sorted.sort((a, b) => sign * compare(a, b) || sign * (a - b));
}

const compareTexts = new Intl.Collator(undefined, {numeric: true}).compare;
