// SPDX-License-Identifier: Apache-2.0

// The records as a grid of which only the rows in view exist.

const ROW_HEIGHT = 28;
// Browsers cut off what is higher; a longer table scrolls by more than it shows.
const MOST_HEIGHT = 12000000;
const MOST_TEXT = 400;
const MOST_PRINTED = 20000;

const COLUMNS = [
    {key: 'number', title: 'Number'},
    {key: 'time', title: 'Time'},
    {key: 'level', title: 'Level'},
    {key: 'event', title: 'Event'},
    {key: 'path', title: 'Path'},
    {key: 'message', title: 'Message'},
];

class Table {
    /**
     * Calls `choose(row)` for the record that becomes the active one; `open(row)` for one that
     * is to be looked at, `openMark(index)` for a gap or a damage; and `sort()` when the rows
     * are to be shown in another order.
     */
    constructor(log, calls) {
        this.log = log;
        this.call = calls;
        this.clock = new Clock(true);
        this.needle = '';
        this.items = [];
        this.active = -1;
        this.key = 'number';
        this.isDescending = log.newestFirst;
        this.body = byId('rows');
        this.view = byId('grid');
        this.space = byId('space');
        this.makeHead();
        this.view.addEventListener('scroll', () => this.drawSoon());
        this.view.addEventListener('keydown', (event) => this.pressed(event));
        this.body.addEventListener('click', (event) => this.clicked(event));
        new ResizeObserver(() => this.drawSoon()).observe(this.view);
        const digits = Math.max(6, ...[0, log.records - 1].filter((row) => row >= 0)
            .map((row) => log.numberText(row).length));
        this.view.style.setProperty('--number-width', `${digits + 3}ch`);
    }

    makeHead() {
        const head = byId('head');
        this.heads = COLUMNS.map(({key, title}) => {
            const button = make('button', {type: 'button'}, title);
            button.addEventListener('click', () => this.sortBy(key));
            return make('div', {role: 'columnheader', className: `cell ${key}`}, button);
        });
        head.append(...this.heads);
    }

    sortBy(key) {
        this.isDescending = this.key === key ? !this.isDescending : false;
        this.key = key;
        this.call.sort();
    }

    /** Shows rows in the log's order, sorted as chosen, with the marks in their places. */
    show(rows, marks) {
        const activeRow = this.active >= 0 ? this.items[this.active] : undefined;
        const isOwnOrder = this.key === 'number';
        if (isOwnOrder) {
            this.items = this.withMarks(rows, marks);
            if (this.isDescending) {
                this.items.reverse();
            }
        } else {
            this.items = sortRows(this.log, rows, this.key, this.isDescending);
        }
        this.active = activeRow === undefined ? -1 : this.items.indexOf(activeRow);
        this.heads.forEach((head, i) => {
            const isKey = COLUMNS[i].key === this.key;
            head.setAttribute('aria-sort', !isKey ? 'none' : this.isDescending ? 'descending' : 'ascending');
        });
        this.view.setAttribute('aria-rowcount', this.items.length + 1);
        this.space.style.height = `${this.height}px`;
        byId('nothing').hidden = this.items.length > 0;
        this.draw();
    }

    /** Rows and marks as one list; a mark is a negative number. */
    withMarks(rows, marks) {
        const items = [];
        let mark = 0;
        for (const row of rows) {
            while (mark < marks.length && marks[mark].before <= row) {
                items.push(-1 - marks[mark].index);
                mark += 1;
            }
            items.push(row);
        }
        return items.concat(marks.slice(mark).map(({index}) => -1 - index));
    }

    get height() {
        return Math.min(this.items.length * ROW_HEIGHT, MOST_HEIGHT);
    }

    get rowsInView() {
        return Math.max(1, Math.floor((this.view.clientHeight - ROW_HEIGHT) / ROW_HEIGHT));
    }

    /** The position of the first item in view, with a fraction, for a position of scrolling. */
    firstAt(scrollTop) {
        const height = this.items.length * ROW_HEIGHT;
        const visible = this.rowsInView * ROW_HEIGHT;
        const ratio = this.height > visible ? (height - visible) / (this.height - visible) : 1;
        return scrollTop * ratio / ROW_HEIGHT;
    }

    scrollTo(first) {
        const height = this.items.length * ROW_HEIGHT;
        const visible = this.rowsInView * ROW_HEIGHT;
        const ratio = height > visible ? (this.height - visible) / (height - visible) : 1;
        this.view.scrollTop = first * ROW_HEIGHT * ratio;
    }

    drawSoon() {
        if (!this.isDrawing) {
            this.isDrawing = true;
            requestAnimationFrame(() => {
                this.isDrawing = false;
                this.draw();
            });
        }
    }

    draw() {
        const top = this.view.scrollTop;
        const position = this.firstAt(top);
        const first = Math.max(0, Math.floor(position) - 2);
        const end = Math.min(this.items.length, Math.ceil(position) + this.rowsInView + 4);
        const rows = [];
        for (let i = first; i < end; i += 1) {
            rows.push(this.makeRow(i));
        }
        this.body.replaceChildren(...rows);
        // Where the table is too high, the rows move with what is scrolled.
        this.body.style.transform = `translateY(${top - (position - first) * ROW_HEIGHT}px)`;
        if (this.active >= first && this.active < end) {
            this.view.setAttribute('aria-activedescendant', `item-${this.active}`);
        } else {
            this.view.removeAttribute('aria-activedescendant');
        }
    }

    makeRow(index) {
        const item = this.items[index];
        const row = item < 0 ? this.makeMark(this.log.marks[-1 - item]) : this.makeRecord(item);
        row.id = `item-${index}`;
        row.setAttribute('aria-rowindex', index + 2);
        row.setAttribute('aria-selected', index === this.active);
        row.dataset.index = index;
        return row;
    }

    makeRecord(row) {
        const {log} = this;
        const level = log.levels[log.level[row]];
        const {state} = log.stateOf(row);
        const cell = (key, ...content) => make('div', {role: 'gridcell', className: `cell ${key}`}, ...content);
        const text = (key, value) => cell(key, shownText(cut(value, MOST_TEXT), {needle: this.needle}));
        const line = make('div', {role: 'row', className: `row ${level.kind} ${state}`},
            cell('number', log.numberText(row)),
            cell('time', this.timeText(row)),
            cell('level', make('span', {className: `dot ${level.kind}`}), shownText(cut(level.name, 40))),
            text('event', log.eventName(row)),
            text('path', log.pathText(row)),
            text('message', log.message(row)));
        if (state !== 'whole') {
            line.lastChild.prepend(make('span', {className: 'badge'}, state));
        }
        line.lastChild.lastChild.lang = log.languages[log.language];
        return line;
    }

    makeMark(mark) {
        return make('div', {role: 'row', className: `row mark ${mark.kind}`},
            make('div', {role: 'gridcell', className: 'cell', 'aria-colspan': COLUMNS.length},
                markText(mark)));
    }

    timeText(row) {
        return this.log.hasTime(row)
            ? this.clock.exact(this.log.seconds[row], this.log.microseconds[row])
            : '–';
    }

    /** Makes an item the active one and brings it into view. */
    activate(index, mayOpen) {
        if (this.items.length === 0) {
            return;
        }
        this.active = Math.min(Math.max(index, 0), this.items.length - 1);
        const first = this.firstAt(this.view.scrollTop);
        if (this.active < first) {
            this.scrollTo(this.active);
        } else if (this.active >= first + this.rowsInView) {
            this.scrollTo(this.active - this.rowsInView + 1);
        }
        this.draw();
        const item = this.items[this.active];
        if (item < 0) {
            if (mayOpen) {
                this.call.openMark(-1 - item);
            }
            return;
        }
        this.call.choose(item);
        if (mayOpen) {
            this.call.open(item);
        }
    }

    /** Brings what lies at a mark into view. */
    showMark(index) {
        const item = this.items.indexOf(-1 - index);
        if (item >= 0) {
            this.scrollTo(Math.max(0, item - Math.floor(this.rowsInView / 2)));
            this.activate(item, false);
        }
    }

    pressed(event) {
        const page = Math.max(1, this.rowsInView - 1);
        const moves = {
            ArrowDown: this.active + 1, ArrowUp: this.active - 1,
            PageDown: this.active + page, PageUp: this.active - page,
            Home: 0, End: this.items.length - 1,
        };
        const isOwn = event.target === this.view && !event.ctrlKey && !event.altKey && !event.metaKey;
        if (isOwn && event.key in moves) {
            this.activate(moves[event.key], false);
            event.preventDefault();
        } else if (isOwn && (event.key === 'Enter' || event.key === ' ')) {
            this.activate(Math.max(0, this.active), true);
            event.preventDefault();
        }
    }

    clicked(event) {
        const row = event.target.closest('.row');
        if (row && String(getSelection()) === '') {
            this.activate(Number(row.dataset.index), true);
        }
    }

    /** All rows, for paper; what is too much for it is left out, and said. */
    expand() {
        const shown = this.items.slice(0, MOST_PRINTED);
        this.body.replaceChildren(...shown.map((item, index) => this.makeRow(index)));
        this.body.style.transform = '';
        const left = this.items.length - shown.length;
        byId('cut').textContent = left > 0 ? `${grouped(left)} more are not printed; filter to print others.` : '';
    }
}

/** A gap or a damage in words. */
function markText(mark) {
    switch (mark.kind) {
    case 'gap':
        return mark.first === mark.last ? `Number ${mark.first} is missing`
            : `${grouped(BigInt(mark.last) - BigInt(mark.first) + 1n)} numbers are missing: ${
                mark.first} to ${mark.last}`;
    case 'again':
        return `Numbers begin again with ${mark.first}`;
    default:
        return `Damage: ${mark.file}, bytes ${grouped(mark.offset)} to ${
            grouped(mark.offset + mark.length - 1)}: ${mark.reason}`;
    }
}
