// SPDX-License-Identifier: Apache-2.0

// All there is to know of one record.

const MOST_DUMPED = 65536;
const BYTES_PER_LINE = 16;

class Details {
    /** Calls `move(by)` for a neighbour, `close()` when it is to be closed. */
    constructor(log, {move, close}) {
        this.log = log;
        this.clock = new Clock(true);
        this.panel = byId('details');
        byId('previous').addEventListener('click', () => move(-1));
        byId('next').addEventListener('click', () => move(1));
        byId('close').addEventListener('click', close);
    }

    get isOpen() {
        return !this.panel.hidden;
    }

    open(row) {
        this.panel.hidden = false;
        this.show(row);
    }

    close() {
        this.panel.hidden = true;
    }

    refresh() {
        if (this.isOpen && this.row !== undefined) {
            this.show(this.row);
        }
    }

    show(row) {
        const {log} = this;
        this.row = row;
        byId('details-title').replaceChildren(`Record ${log.numberText(row)}`);
        const message = make('p', {className: 'full-message', lang: log.languages[log.language]},
            shownText(log.message(row), {kept: '\n\t'}));
        byId('details-body').replaceChildren(message,
            make('div', null, this.facts(row), ...this.values(row)),
            make('div', {className: 'raw'}, ...this.bytes(row)));
        byId('details-body').scrollTop = 0;
    }

    facts(row) {
        const {log} = this;
        const event = log.eventOf(row);
        const level = log.levels[log.level[row]];
        const {state, fault} = log.stateOf(row);
        const facts = [
            ['Time', this.timeText(row)],
            ['Level', [make('span', {className: `dot ${level.kind}`}), shownText(level.name),
                       Number.isFinite(level.number) ? ` (${level.number})` : '']],
            ['Event', [shownText(eventLabel(event)), event.name === undefined ? '' : ` (${event.id})`]],
            ['Service', event.service ? shownText(event.service) : '–'],
            ['Path', shownText(log.pathText(row))],
            ['Place', `zib${log.file[row]}.log, from byte ${grouped(log.offset[row])}`],
        ];
        if (state !== 'whole') {
            facts.push(['State', make('span', null, make('span', {className: 'badge'}, state), fault)]);
        }
        const list = make('dl');
        for (const [name, content] of facts) {
            list.append(make('dt', null, name), make('dd', null, ...[content].flat()));
        }
        return list;
    }

    timeText(row) {
        const {log} = this;
        const seconds = log.seconds[row];
        const microseconds = log.microseconds[row];
        return log.hasTime(row)
            ? `${this.clock.exact(seconds, microseconds)} ${this.clock.zone(seconds)}`
            : `none: ${seconds} s and ${microseconds} µs`;
    }

    values(row) {
        const values = this.log.valuesOf(row);
        const surplus = this.log.surplus.get(row);
        const parts = [];
        if (values.length > 0) {
            const head = make('tr', null, ...['Name', 'Type', 'Value'].map((title) => make('th', {scope: 'col'}, title)));
            const lines = values.map((value) => this.valueLine(value));
            parts.push(make('h3', null, 'Values'),
                make('table', null, make('thead', null, head), make('tbody', null, ...lines)));
        }
        if (surplus) {
            parts.push(make('p', {className: 'note'},
                `${counted(surplus.length / 2, 'byte')} more than the catalogue declares: ${cut(surplus, 400)}`));
        }
        return parts;
    }

    valueLine({name, type, text, shown, contentType}) {
        const content = make('td', {className: 'value'});
        if (text === null) {
            content.append(make('i', null, 'cannot be read'));
        } else {
            content.append(shownText(text, {kept: '\n\t'}));
        }
        if (type === 'enum' && text !== null && shown !== null) {
            content.append(' = ', shownText(shown));
        }
        return make('tr', null, make('td', null, shownText(name)),
            make('td', null, contentType ? `${type}: ${contentType}` : type), content);
    }

    bytes(row) {
        const title = make('h3', null, 'Bytes');
        const dump = make('pre', {className: 'dump', tabIndex: 0, 'aria-label': 'Bytes in hexadecimal'}, '…');
        this.fill(title, dump, row);
        return [title, dump];
    }

    async fill(title, dump, row) {
        const bytes = await this.log.bytesOf(row);
        const shown = Math.min(bytes.length, MOST_DUMPED);
        const parts = this.partsOf(bytes.length);
        const lines = document.createDocumentFragment();
        for (let begin = 0; begin < shown; begin += BYTES_PER_LINE) {
            const end = Math.min(begin + BYTES_PER_LINE, shown);
            lines.append(...dumpLine(bytes, begin, end, parts), '\n');
        }
        dump.replaceChildren(lines);
        title.textContent = shown < bytes.length
            ? `Bytes: the first ${grouped(shown)} of ${grouped(bytes.length)}` : counted(bytes.length, 'byte');
    }

    /** The parts of a record: each with its end and what it means. */
    partsOf(length) {
        const parts = this.log.layout.head.map(([name, end]) => ({name, end}));
        const tail = this.log.layout.tail;
        parts.push({name: 'path and values', end: length - tail - 1}, {name: 'end mark', end: length - tail},
            {name: 'length', end: length});
        return parts;
    }
}

/** The nodes of one line: where it begins, the bytes part by part, and as characters. */
function dumpLine(bytes, begin, end, parts) {
    const nodes = [make('span', {className: 'at'}, begin.toString(16).padStart(4, '0')), '  '];
    let at = begin;
    while (at < end) {
        const index = parts.findIndex((part) => at < part.end);
        const stop = Math.min(end, parts[index].end);
        const hex = [];
        for (; at < stop; at += 1) {
            hex.push(bytes[at].toString(16).padStart(2, '0'));
        }
        nodes.push(make('span', {className: `part-${index % 2}`, title: parts[index].name}, hex.join(' ')), ' ');
    }
    let characters = '';
    for (let i = begin; i < end; i += 1) {
        characters += bytes[i] >= 0x20 && bytes[i] < 0x7f ? String.fromCharCode(bytes[i]) : '·';
    }
    nodes.push(' '.repeat(3 * (BYTES_PER_LINE - (end - begin)) + 1), make('span', {className: 'at'}, characters));
    return nodes;
}
