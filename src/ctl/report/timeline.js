// SPDX-License-Identifier: Apache-2.0

// How many records there were when, by level, as stacked bars. Zooming limits the time of
// everything that is shown.

const BAR_STEPS = [1e-6, 2e-6, 5e-6, 1e-5, 2e-5, 5e-5, 1e-4, 2e-4, 5e-4, 1e-3, 2e-3, 5e-3, 0.01, 0.02,
    0.05, 0.1, 0.2, 0.5, 1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 10800, 21600,
    43200, 86400, 172800, 604800, 1209600, 2592000, 7776000, 31536000, 157680000, 315360000, 3153600000];
const BAR_WIDTH = 7;
const LABEL_WIDTH = 110;
const LEAST_SPAN = 1e-3;
const MARGIN = {left: 48, right: 12, top: 16, bottom: 22};

function stepOver(least) {
    return BAR_STEPS.find((step) => step >= least) || BAR_STEPS[BAR_STEPS.length - 1];
}

/** A round number at or above one. */
function roundUp(number) {
    const power = 10 ** Math.floor(Math.log10(Math.max(1, number)));
    return [1, 2, 4, 5, 10].map((factor) => factor * power).find((each) => each >= number);
}

class Timeline {
    /** Calls `zoom(from, to)`, infinite ones for all; `mark(index)` for one that is clicked. */
    constructor(log, {zoom, mark}) {
        this.log = log;
        this.call = {zoom, mark};
        this.clock = new Clock(true);
        this.canvas = byId('timeline');
        this.tip = byId('tip');
        this.rows = new Uint32Array(0);
        this.marks = [];
        const span = Math.max(log.lastTime - log.firstTime, 1e-3);
        this.all = {from: log.firstTime - span / 100, to: log.lastTime + span / 100};
        this.view = {...this.all};
        this.listen();
        new ResizeObserver(() => this.draw()).observe(this.canvas);
    }

    listen() {
        const {canvas} = this;
        canvas.addEventListener('wheel', (event) => this.wheeled(event), {passive: false});
        canvas.addEventListener('pointerdown', (event) => this.dragBegins(event));
        canvas.addEventListener('pointermove', (event) => this.moved(event));
        canvas.addEventListener('pointerup', (event) => this.dragEnds(event));
        canvas.addEventListener('pointercancel', () => this.dragStops());
        canvas.addEventListener('pointerleave', () => this.left());
        canvas.addEventListener('dblclick', () => this.reset());
        canvas.addEventListener('keydown', (event) => this.pressed(event));
        const buttons = {earlier: () => this.pan(-0.25), later: () => this.pan(0.25),
                         closer: () => this.zoomAt(0.5, 0.5), wider: () => this.zoomAt(0.5, 2),
                         everything: () => this.reset()};
        for (const [id, action] of Object.entries(buttons)) {
            byId(id).addEventListener('click', action);
        }
    }

    get isWhole() {
        return this.view.from <= this.all.from && this.view.to >= this.all.to;
    }

    /** Shows the rows, of which those outside of the view do not count. */
    show(rows, marks) {
        this.rows = rows;
        this.marks = marks;
        this.draw();
    }

    restyle() {
        const style = getComputedStyle(document.documentElement);
        const colour = (name) => style.getPropertyValue(`--${name}`).trim();
        this.colours = {text: colour('muted'), line: colour('line'), strong: colour('text'),
                        accent: colour('accent'), gap: colour('gap'), lost: colour('lost'),
                        levels: this.log.levels.map(({kind}) => colour(kind))};
    }

    // Where things are.

    get plot() {
        return {left: MARGIN.left, top: MARGIN.top,
                width: Math.max(10, this.canvas.clientWidth - MARGIN.left - MARGIN.right),
                height: Math.max(10, this.canvas.clientHeight - MARGIN.top - MARGIN.bottom)};
    }

    xOf(time) {
        const {left, width} = this.plot;
        return left + (time - this.view.from) / (this.view.to - this.view.from) * width;
    }

    /** Where between the left and the right edge, 0 to 1. */
    shareOf(event) {
        const {left, width} = this.plot;
        const x = event.clientX - this.canvas.getBoundingClientRect().left;
        return Math.min(Math.max((x - left) / width, 0), 1);
    }

    timeAt(share) {
        return this.view.from + share * (this.view.to - this.view.from);
    }

    /** Counts the rows in view, bar by bar and level by level. */
    count() {
        const {log, view} = this;
        const levels = log.levels.length;
        const step = stepOver((view.to - view.from) * BAR_WIDTH / this.plot.width);
        const offset = this.clock.offset(view.from);
        const first = Math.floor((view.from + offset) / step);
        const bars = Math.floor((view.to + offset) / step) - first + 1;
        const counts = new Uint32Array(bars * levels);
        for (const row of this.rows) {
            const time = log.seconds[row] + log.microseconds[row] / 1e6;
            if (time >= view.from && time <= view.to && log.isTimeSure(row)) {
                counts[(Math.floor((time + offset) / step) - first) * levels + log.level[row]] += 1;
            }
        }
        const begin = (bar) => (first + bar) * step - offset;
        return {step, bars, levels, counts, begin};
    }

    // Drawing.

    draw() {
        const {canvas} = this;
        if (canvas.clientWidth === 0 || !this.log.isTimed) {
            return;
        }
        if (!this.colours) {
            this.restyle();
        }
        const ratio = devicePixelRatio || 1;
        canvas.width = Math.round(canvas.clientWidth * ratio);
        canvas.height = Math.round(canvas.clientHeight * ratio);
        const pen = canvas.getContext('2d');
        pen.scale(ratio, ratio);
        pen.font = `11px ${getComputedStyle(canvas).fontFamily}`;
        this.bars = this.count();
        this.drawAxes(pen);
        this.drawBars(pen);
        this.drawMarks(pen);
        this.drawDrag(pen);
        this.describe();
    }

    highest() {
        const {bars, levels, counts} = this.bars;
        let highest = 0;
        for (let bar = 0; bar < bars; bar += 1) {
            let sum = 0;
            for (let level = 0; level < levels; level += 1) {
                sum += counts[bar * levels + level];
            }
            highest = Math.max(highest, sum);
        }
        return highest;
    }

    drawAxes(pen) {
        const {left, top, width, height} = this.plot;
        this.roof = roundUp(this.highest());
        pen.fillStyle = this.colours.text;
        pen.strokeStyle = this.colours.line;
        pen.lineWidth = 1;
        pen.textAlign = 'right';
        pen.textBaseline = 'middle';
        for (const share of this.roof > 1 ? [0, 0.5, 1] : [0, 1]) {
            const y = Math.round(top + height * (1 - share)) + 0.5;
            pen.beginPath();
            pen.moveTo(left, y);
            pen.lineTo(left + width, y);
            pen.stroke();
            pen.fillText(grouped(this.roof * share), left - 8, y);
        }
        this.drawTimes(pen);
    }

    drawTimes(pen) {
        const {view, clock} = this;
        const {left, top, width, height} = this.plot;
        const step = stepOver((view.to - view.from) * LABEL_WIDTH / width);
        const offset = clock.offset(view.from);
        pen.textAlign = 'center';
        pen.textBaseline = 'top';
        let day = '';
        for (let n = Math.ceil((view.from + offset) / step); n * step - offset <= view.to; n += 1) {
            const time = n * step - offset;
            const x = this.xOf(time);
            const date = clock.date(time);
            const label = date !== day || step >= 86400 ? this.dateLabel(time, step) : this.timeLabel(time, step);
            day = date;
            pen.fillStyle = this.colours.line;
            pen.fillRect(Math.round(x), top + height, 1, 4);
            pen.fillStyle = this.colours.text;
            const half = pen.measureText(label).width / 2;
            pen.fillText(label, Math.min(Math.max(x, half), left + width + MARGIN.right - half), top + height + 7);
        }
    }

    timeLabel(time, step) {
        const whole = Math.floor(time + 5e-7);
        if (step >= 1) {
            return this.clock.time(whole).slice(0, step >= 60 ? 5 : 8);
        }
        const microseconds = Math.round((time - whole) * 1e6);
        const digits = step >= 1e-3 ? 3 : 6;
        return `${this.clock.time(whole)}.${String(microseconds).padStart(6, '0').slice(0, digits)}`;
    }

    dateLabel(time, step) {
        if (step >= 86400) {
            // Behind a change of the clock what was midnight is an hour before or behind it.
            return this.clock.date(time + 7200).slice(0, step >= 2592000 ? 7 : 10);
        }
        return `${this.clock.date(time)} ${this.timeLabel(time, step)}`;
    }

    drawBars(pen) {
        const {step, bars, levels, counts, begin} = this.bars;
        const {left, top, width, height} = this.plot;
        for (let bar = 0; bar < bars; bar += 1) {
            const x = Math.max(this.xOf(begin(bar)) + 0.5, left);
            const end = Math.min(this.xOf(begin(bar) + step) - 0.5, left + width);
            let y = top + height;
            for (let level = 0; level < levels; level += 1) {
                const number = counts[bar * levels + level];
                if (number > 0 && end > x) {
                    // However few, they are seen.
                    const size = Math.max(number / this.roof * height, 1.5);
                    y = Math.max(y - size, top - 6);
                    pen.fillStyle = this.colours.levels[level];
                    pen.fillRect(x, y, end - x, size);
                }
            }
            if (bar === this.hovered) {
                pen.globalAlpha = 0.12;
                pen.fillStyle = this.colours.strong;
                pen.fillRect(x - 0.5, top, end - x + 1, height);
                pen.globalAlpha = 1;
            }
        }
    }

    marksInView() {
        return this.marks.filter(({time}) => time >= this.view.from && time <= this.view.to);
    }

    drawMarks(pen) {
        const {top, height} = this.plot;
        const drawn = new Set();
        // Damage above gaps: where it is, numbers are missing, too.
        for (const isGap of [true, false]) {
            for (const mark of this.marksInView().filter((each) => isGapMark(each) === isGap)) {
                const x = Math.round(this.xOf(mark.time));
                const place = `${x} ${isGap}`;
                if (!drawn.has(place)) {
                    drawn.add(place);
                    pen.fillStyle = isGap ? this.colours.gap : this.colours.lost;
                    for (let y = top; y < top + height; y += 5) {
                        pen.fillRect(x, y, 1, 3);
                    }
                    drawSign(pen, x + 0.5, 7, isGap);
                }
            }
        }
    }

    drawDrag(pen) {
        if (this.drag && this.drag.to !== undefined) {
            const {left, top, width, height} = this.plot;
            const from = left + Math.min(this.drag.from, this.drag.to) * width;
            const to = left + Math.max(this.drag.from, this.drag.to) * width;
            pen.fillStyle = this.colours.accent;
            pen.globalAlpha = 0.15;
            pen.fillRect(from, top, to - from, height);
            pen.globalAlpha = 1;
            pen.fillRect(from, top, 1, height);
            pen.fillRect(to, top, 1, height);
        }
    }

    /** What is in view, in words. */
    describe() {
        const {from, to} = this.isWhole ? {from: this.log.firstTime, to: this.log.lastTime} : this.view;
        const text = (time) => `${this.clock.date(time)} ${this.timeLabel(time, to - from < 10 ? 1e-6 : 1)}`;
        byId('range').textContent = `${text(from)} to ${text(to)} · ${durationText(to - from)
            } · one bar is ${durationText(this.bars.step)}`;
        for (const id of ['wider', 'everything', 'earlier', 'later']) {
            byId(id).disabled = this.isWhole;
        }
    }

    // What the reader does.

    setView(from, to) {
        const {all} = this;
        const span = Math.min(Math.max(to - from, LEAST_SPAN), all.to - all.from);
        const begin = Math.min(Math.max((from + to) / 2 - span / 2, all.from), all.to - span);
        this.view = {from: begin, to: begin + span};
        if (this.isWhole) {
            this.call.zoom(-Infinity, Infinity);
        } else {
            this.call.zoom(this.view.from, this.view.to);
        }
    }

    reset() {
        this.view = {...this.all};
        this.call.zoom(-Infinity, Infinity);
    }

    zoomAt(share, factor) {
        const time = this.timeAt(share);
        const span = (this.view.to - this.view.from) * factor;
        this.setView(time - share * span, time + (1 - share) * span);
    }

    pan(share) {
        const by = share * (this.view.to - this.view.from);
        const limited = Math.min(Math.max(by, this.all.from - this.view.from), this.all.to - this.view.to);
        this.setView(this.view.from + limited, this.view.to + limited);
    }

    wheeled(event) {
        event.preventDefault();
        if (event.shiftKey || Math.abs(event.deltaX) > Math.abs(event.deltaY)) {
            this.pan(Math.sign(event.deltaX || event.deltaY) * 0.1);
        } else {
            this.zoomAt(this.shareOf(event), event.deltaY < 0 ? 0.8 : 1.25);
        }
    }

    dragBegins(event) {
        if (event.button === 0) {
            this.drag = {from: this.shareOf(event), x: event.clientX};
            this.canvas.setPointerCapture(event.pointerId);
        }
    }

    moved(event) {
        if (this.drag && Math.abs(event.clientX - this.drag.x) > 3) {
            this.drag.to = this.shareOf(event);
            this.tip.hidden = true;
            this.draw();
        } else if (!this.drag) {
            this.hover(event);
        }
    }

    dragStops() {
        const {drag} = this;
        this.drag = null;
        return drag;
    }

    dragEnds(event) {
        const drag = this.dragStops();
        if (drag && drag.to !== undefined) {
            const from = Math.min(drag.from, drag.to);
            const to = Math.max(drag.from, drag.to);
            this.setView(this.timeAt(from), this.timeAt(to));
        } else if (drag) {
            const mark = this.markAt(event);
            if (mark) {
                this.call.mark(mark.index);
            }
        }
    }

    markAt(event) {
        const box = this.canvas.getBoundingClientRect();
        const x = event.clientX - box.left;
        return event.clientY - box.top < MARGIN.top
            ? this.marksInView().find(({time}) => Math.abs(this.xOf(time) - x) < 6)
            : undefined;
    }

    left() {
        this.tip.hidden = true;
        this.hovered = undefined;
        this.draw();
    }

    hover(event) {
        if (!this.bars) {
            return;
        }
        const {step, bars, begin} = this.bars;
        const bar = Math.floor((this.timeAt(this.shareOf(event)) - begin(0)) / step);
        const mark = this.markAt(event);
        this.hovered = bar >= 0 && bar < bars ? bar : undefined;
        this.draw();
        this.tip.replaceChildren(...(mark ? [markText(mark)] : this.tipOf(bar)));
        this.tip.hidden = this.tip.childNodes.length === 0;
        const box = this.canvas.getBoundingClientRect();
        const x = event.clientX - box.left;
        const isRight = x > box.width / 2;
        this.tip.style.left = isRight ? '' : `${x + 14}px`;
        this.tip.style.right = isRight ? `${box.width - x + 14}px` : '';
        this.canvas.style.cursor = mark ? 'pointer' : 'crosshair';
    }

    tipOf(bar) {
        const {step, levels, counts, begin} = this.bars;
        const lines = [];
        for (let level = 0; level < levels; level += 1) {
            const number = counts[bar * levels + level];
            if (number > 0) {
                const {name, kind} = this.log.levels[level];
                lines.push(make('div', null, make('span', {className: `dot ${kind}`}), shownText(cut(name, 40)), ' ',
                    make('b', null, grouped(number))));
            }
        }
        const title = `${this.dateLabel(begin(bar), Math.min(step, 3600))}, ${durationText(step)}`;
        return lines.length > 0 ? [make('div', {className: 'title'}, title), ...lines] : [];
    }

    pressed(event) {
        const actions = {
            '+': () => this.zoomAt(0.5, 0.5), '=': () => this.zoomAt(0.5, 0.5),
            '-': () => this.zoomAt(0.5, 2), '0': () => this.reset(),
            ArrowUp: () => this.zoomAt(0.5, 0.5), ArrowDown: () => this.zoomAt(0.5, 2),
            ArrowLeft: () => this.pan(-0.25), ArrowRight: () => this.pan(0.25),
            Home: () => this.pan(-Infinity), End: () => this.pan(Infinity),
            Escape: () => this.reset(),
        };
        if (actions[event.key] && !event.ctrlKey && !event.altKey && !event.metaKey) {
            actions[event.key]();
            event.preventDefault();
        }
    }
}

function isGapMark({kind}) {
    return kind === 'gap' || kind === 'again';
}

/** A triangle for a gap, a diamond for damage. */
function drawSign(pen, x, y, isGap) {
    pen.beginPath();
    pen.moveTo(x - 5, isGap ? y - 4 : y);
    pen.lineTo(isGap ? x + 5 : x, isGap ? y - 4 : y - 5.5);
    pen.lineTo(isGap ? x : x + 5, isGap ? y + 5 : y);
    if (!isGap) {
        pen.lineTo(x, y + 5.5);
    }
    pen.fill();
}
