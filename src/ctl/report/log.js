// SPDX-License-Identifier: Apache-2.0

// What the page has been given: the records, column by column, as ReportRecords writes them.

/** The texts of all data blocks of a kind, in their order. */
function blocks(kind) {
    return [...document.querySelectorAll(`script.${kind}`)].map((block) => block.textContent);
}

function bytesOfBase64(text) {
    const binary = atob(text);
    const bytes = new Uint8Array(binary.length);
    for (let i = 0; i < binary.length; i += 1) {
        bytes[i] = binary.charCodeAt(i);
    }
    return bytes;
}

/** Unpacks a data block; the answer has its content in any form. */
function unpack(block) {
    const packed = new Blob([bytesOfBase64(block)]).stream();
    return new Response(packed.pipeThrough(new DecompressionStream('deflate')));
}

class Log {
    /** Of the description that stands in front of the records, and the pieces with these. */
    constructor(about, pieces, byteBlocks) {
        Object.assign(this, about);
        this.byteBlocks = byteBlocks;
        this.language = Math.max(0, about.languages.indexOf(about.language));
        this.makeLevels();
        this.services = this.tableOf((event) => event.service);
        this.allocate(about.records);
        this.row = 0;
        for (const piece of pieces) {
            this.addPiece(piece);
        }
        this.findTimes();
    }

    static async read() {
        const [about] = await Promise.all(blocks('about').map((block) => unpack(block).json()));
        const pieces = await Promise.all(blocks('records').map((block) => unpack(block).json()));
        return new Log(about, pieces, blocks('bytes'));
    }

    /** The levels that there are, the gravest first; events without one come last. */
    makeLevels() {
        const levels = new Map();
        for (const event of this.events) {
            const isKnown = event.name !== undefined;
            const key = isKnown ? `${event.levelNumber} ${event.level}` : '';
            if (!levels.has(key)) {
                levels.set(key, isKnown
                    ? {name: event.level || `level ${event.levelNumber}`, number: event.levelNumber}
                    : {name: 'unknown', number: Infinity});
            }
            event.levelEntry = levels.get(key);
        }
        this.levels = [...levels.values()].sort((a, b) => a.number - b.number);
        this.levels.forEach((level, index) => {
            level.index = index;
            level.kind = levelKind(level.number);
        });
    }

    /** Gives every event an index in a table of one of its texts; the table. */
    tableOf(textOf) {
        const names = [...new Set(this.events.map((event) => textOf(event) || ''))].sort();
        const indices = new Map(names.map((name, index) => [name, index]));
        for (const event of this.events) {
            event.service = event.service || '';
            event.serviceIndex = indices.get(event.service);
        }
        return names;
    }

    allocate(records) {
        this.number = new Float64Array(records);
        this.largeNumbers = new Map();
        this.seconds = new Float64Array(records);
        this.microseconds = new Uint32Array(records);
        this.event = new Uint32Array(records);
        this.path = new Uint32Array(records);
        this.file = new Uint32Array(records);
        this.offset = new Float64Array(records);
        this.length = new Float64Array(records);
        this.level = new Uint16Array(records);
        this.service = new Uint16Array(records);
        this.firstValue = new Uint32Array(records + 1);
        this.value = [];
        this.values = [];
        this.paths = [];
        this.states = new Map();
        this.surplus = new Map();
        this.whole = this.languages.map(() => new Map());
        this.pieceBegin = [];
    }

    addPiece(piece) {
        const begin = this.row;
        this.pieceBegin.push(begin);
        // Not by spreading: there may be more than a call takes arguments.
        piece.values.forEach((entry) => this.values.push(entry));
        piece.paths.forEach((entry) => this.paths.push(entry));
        this.addRising(piece.number, this.number, this.largeNumbers);
        this.addRising(piece.seconds, this.seconds, null);
        this.addRising(piece.offset, this.offset, null);
        this.microseconds.set(piece.microseconds, begin);
        this.event.set(piece.event, begin);
        this.path.set(piece.path, begin);
        this.file.set(piece.file, begin);
        this.length.set(piece.length, begin);
        const valueBegin = this.value.length;
        piece.value.forEach((index) => this.value.push(index));
        let value = valueBegin;
        for (let row = begin; row < begin + piece.event.length; row += 1) {
            const event = this.events[this.event[row]];
            this.level[row] = event.levelEntry.index;
            this.service[row] = event.serviceIndex;
            this.firstValue[row] = value;
            value += event.arguments ? event.arguments.length : 0;
        }
        this.row = begin + piece.event.length;
        this.firstValue[this.row] = value;
        piece.states.forEach(([row, state, fault]) => this.states.set(begin + row, {state, fault}));
        piece.surplus.forEach(([row, bytes]) => this.surplus.set(begin + row, bytes));
        piece.whole.forEach(([row, language, text]) => this.whole[language].set(begin + row, text));
    }

    /** Differences; a text is a number on its own, too large for one. */
    addRising(items, column, large) {
        let last = 0;
        for (let i = 0; i < items.length; i += 1) {
            const row = this.row + i;
            if (typeof items[i] === 'string') {
                column[row] = Number(items[i]);
                if (large) {
                    large.set(row, items[i]);
                }
            } else {
                last += items[i];
                column[row] = last;
            }
        }
    }

    numberText(row) {
        return this.largeNumbers.get(row) || String(this.number[row]);
    }

    /** Whether a record has a time that can be shown, and that nothing speaks against. */
    hasTime(row) {
        return this.seconds[row] < 253402300800 && this.microseconds[row] < 1000000;
    }

    isTimeSure(row) {
        return this.hasTime(row)
            && (!this.states.has(row) || this.states.get(row).state !== 'damaged');
    }

    /** In seconds. */
    time(row) {
        return this.seconds[row] + this.microseconds[row] / 1e6;
    }

    eventOf(row) {
        return this.events[this.event[row]];
    }

    eventName(row) {
        return eventLabel(this.eventOf(row));
    }

    pathText(row) {
        return this.paths[this.path[row]];
    }

    stateOf(row) {
        return this.states.get(row) || {state: 'whole', fault: ''};
    }

    /** What a message shows of its values, in the order of the placeholders. */
    shownValues(row) {
        const shown = [];
        for (let i = this.firstValue[row]; i < this.firstValue[row + 1]; i += 1) {
            const entry = this.values[this.value[i]];
            const text = typeof entry === 'string' ? entry : entry[1];
            if (text !== null) {
                shown.push(text);
            }
        }
        return shown;
    }

    message(row) {
        const whole = this.whole[this.language].get(row);
        if (whole !== undefined) {
            return whole;
        }
        const {texts} = this.eventOf(row);
        if (!texts) {
            return '';
        }
        const pieces = texts[this.language];
        const values = this.shownValues(row);
        let message = '';
        for (let i = 0; i + 2 < pieces.length; i += 3) {
            const value = pieces[i + 1];
            message += pieces[i] + (value < values.length ? values[value] : pieces[i + 2]);
        }
        return message + pieces[pieces.length - 1];
    }

    /** Each value of a record with what the catalogue says of it. */
    valuesOf(row) {
        const begin = this.firstValue[row];
        return (this.eventOf(row).arguments || []).map(({name, type}, i) => {
            const entry = this.values[this.value[begin + i]];
            const [text, shown, contentType] = typeof entry === 'string' ? [entry, entry] : entry;
            return {name, type, text, shown, contentType};
        });
    }

    /** The bytes of a record. */
    async bytesOf(row) {
        let piece = this.pieceBegin.length - 1;
        while (this.pieceBegin[piece] > row) {
            piece -= 1;
        }
        if (!this.unpacked || this.unpacked.piece !== piece) {
            const buffer = await unpack(this.byteBlocks[piece]).arrayBuffer();
            this.unpacked = {piece, bytes: new Uint8Array(buffer)};
        }
        let begin = 0;
        for (let each = this.pieceBegin[piece]; each < row; each += 1) {
            begin += this.length[each];
        }
        return this.unpacked.bytes.subarray(begin, begin + this.length[row]);
    }

    /** The earliest and the latest time, and where in time each gap and each damage lies. */
    findTimes() {
        this.firstTime = Infinity;
        this.lastTime = -Infinity;
        for (let row = 0; row < this.records; row += 1) {
            if (this.isTimeSure(row)) {
                this.firstTime = Math.min(this.firstTime, this.time(row));
                this.lastTime = Math.max(this.lastTime, this.time(row));
            }
        }
        for (const mark of this.marks) {
            let row = mark.before - 1;
            while (row >= 0 && !this.isTimeSure(row)) {
                row -= 1;
            }
            if (row < 0) {
                row = mark.before;
                while (row < this.records && !this.isTimeSure(row)) {
                    row += 1;
                }
            }
            mark.time = row < this.records ? this.time(row) : NaN;
        }
    }

    get isTimed() {
        return this.firstTime <= this.lastTime;
    }
}

function eventLabel(event) {
    return event.name || (event.name === undefined ? `event ${event.id}` : String(event.id));
}

/** Which of the page's colours a level has. */
function levelKind(number) {
    const kinds = ['critical', 'critical', 'critical', 'error', 'warning', 'notice', 'info'];
    if (number === Infinity) {
        return 'unknown';
    }
    return kinds[Math.max(0, number)] || 'debug';
}
