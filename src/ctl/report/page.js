// SPDX-License-Identifier: Apache-2.0

// Brings the parts together.

class Page {
    constructor(log) {
        this.log = log;
        log.marks.forEach((mark, index) => {
            mark.index = index;
        });
        this.filter = new Filter(log);
        this.table = new Table(log, {
            open: (row) => this.openDetails(row),
            choose: (row) => this.details.isOpen && this.details.show(row),
            openMark: (index) => this.showMark(index),
            sort: () => this.update(),
        });
        this.timeline = new Timeline(log, {
            zoom: (from, to) => this.change(() => Object.assign(this.filter, {from, to})),
            mark: (index) => this.showMark(index),
        });
        this.details = new Details(log, {
            move: (by) => this.table.activate(this.table.active + by, false),
            close: () => this.closeDetails(),
        });
        this.makeFacets();
        this.makeControls();
        this.makeSummary();
        this.setClock(log.zone === 'utc');
    }

    makeFacets() {
        const {log} = this;
        const toggle = (facet) => (index) => this.change(() => this.filter.toggle(facet, index));
        this.levels = new LevelSwitches(log, toggle('level'));
        this.facets = {
            event: new Facet('event', (index) => {
                const event = log.events[index];
                return {text: eventLabel(event), title: `event ${event.id}`, kind: event.levelEntry.kind};
            }, toggle('event')),
            service: new Facet('service', (index) => ({text: log.services[index] || '(unknown)'}), toggle('service')),
            path: new Facet('path', (index) => ({text: log.paths[index] || '(none)'}), toggle('path')),
        };
    }

    makeControls() {
        const {log} = this;
        const search = byId('search');
        search.addEventListener('input', () => this.changeSoon(() => this.filter.search(search.value)));
        byId('language').append(...log.languages.map((code, index) => make('option', {
            value: index, selected: index === log.language}, languageName(code))));
        byId('language').addEventListener('change', (event) => this.setLanguage(Number(event.target.value)));
        byId('language-label').hidden = log.languages.length < 2;
        byId('zone').value = log.zone;
        byId('zone').addEventListener('change', (event) => this.setClock(event.target.value === 'utc'));
        byId('theme').addEventListener('change', (event) => this.setTheme(event.target.value));
        byId('clear').addEventListener('click', () => this.clearFilter());
        byId('damage').addEventListener('click', () => this.change(() => {
            this.filter.onlyDamage = !this.filter.onlyDamage;
        }));
        document.addEventListener('keydown', (event) => this.pressed(event));
        matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => this.restyle());
        addEventListener('beforeprint', () => this.prepareForPaper());
        addEventListener('afterprint', () => this.returnFromPaper());
    }

    makeSummary() {
        const {log} = this;
        const missing = log.missing === undefined ? '0' : log.missing;
        byId('folder').replaceChildren(shownText(log.folder));
        byId('made').textContent = `${log.program}, ${log.made.slice(0, 16).replace('T', ' ')} UTC`;
        document.title = `Event log of ${cut(log.folder, 100)}`;
        byId('count-records').textContent = grouped(log.records);
        byId('span').textContent = log.isTimed ? durationText(log.lastTime - log.firstTime) : '–';
        byId('count-missing').textContent = grouped(missing);
        byId('count-damaged').textContent = grouped(log.damaged);
        byId('fact-missing').classList.toggle('bad', missing !== '0');
        byId('fact-damaged').classList.toggle('bad', log.damaged > 0);
        byId('damage').hidden = log.marks.length === 0 && log.states.size === 0;
        byId('damage-count').textContent = grouped(log.marks.length + log.states.size);
        byId('time').hidden = !log.isTimed;
        byId('no-catalogue').hidden = log.hasCatalogue;
        byId('incomplete').hidden = log.isComplete;
    }

    // What changes what is shown.

    change(action) {
        action();
        this.update();
    }

    /** The same for what comes in quick succession. */
    changeSoon(action) {
        action();
        if (!this.isWaiting) {
            this.isWaiting = true;
            setTimeout(() => {
                this.isWaiting = false;
                this.update();
            }, 60);
        }
    }

    update() {
        const {log, filter} = this;
        const {rows, untimed, counts} = filter.run();
        const marks = rows.length > 0 || filter.onlyDamage ? log.marks.filter((mark) => filter.admitsMark(mark)) : [];
        this.table.needle = filter.needle;
        this.table.show(rows, marks);
        this.timeline.show(untimed, log.marks);
        this.levels.show(counts.level, filter.chosen.level);
        for (const [name, facet] of Object.entries(this.facets)) {
            facet.show(counts[name], filter.chosen[name]);
        }
        byId('damage').setAttribute('aria-pressed', filter.onlyDamage);
        byId('clear').disabled = !filter.isActive;
        byId('result').textContent = filter.isActive
            ? `${grouped(rows.length)} of ${counted(log.records, 'record')}` : counted(log.records, 'record');
    }

    /** Shows a gap or a damage among the records around it. */
    showMark(index) {
        if (this.filter.onlyDamage) {
            this.change(() => {
                this.filter.onlyDamage = false;
            });
        }
        this.table.showMark(index);
    }

    clearFilter() {
        byId('search').value = '';
        this.filter.clear();
        this.timeline.reset();
    }

    setLanguage(index) {
        this.log.language = index;
        this.update();
        this.details.refresh();
    }

    setClock(isUtc) {
        const clock = new Clock(isUtc);
        this.table.clock = clock;
        this.timeline.clock = clock;
        this.details.clock = clock;
        this.update();
        this.details.refresh();
    }

    setTheme(theme) {
        document.documentElement.dataset.theme = theme;
        this.restyle();
    }

    restyle() {
        this.timeline.restyle();
        this.timeline.draw();
    }

    openDetails(row) {
        byId('main').classList.add('with-details');
        this.details.open(row);
        this.table.activate(this.table.active, false);
    }

    closeDetails() {
        byId('main').classList.remove('with-details');
        this.details.close();
        byId('grid').focus();
    }

    pressed(event) {
        const isTyping = /^(INPUT|SELECT)$/.test(event.target.tagName);
        if (isTyping || event.defaultPrevented) {
            return;
        }
        if (event.key === '/' && !event.ctrlKey && !event.metaKey) {
            byId('search').focus();
            event.preventDefault();
        } else if (event.key === 'Escape' && this.details.isOpen) {
            this.closeDetails();
        }
    }

    prepareForPaper() {
        this.themeBefore = document.documentElement.dataset.theme;
        this.setTheme('light');
        this.table.expand();
    }

    returnFromPaper() {
        this.setTheme(this.themeBefore);
        this.table.draw();
    }
}

/** A language by its own name, where the browser knows it. */
function languageName(code) {
    try {
        const name = new Intl.DisplayNames([code], {type: 'language'}).of(code);
        return name === code ? code : `${name} (${code})`;
    } catch (error) {
        return code;
    }
}

function fail(text) {
    byId('loading').textContent = text;
    byId('loading').classList.add('bad');
}

async function begin() {
    if (typeof DecompressionStream === 'undefined') {
        fail('This page needs a browser that is not older than 2023.');
        return;
    }
    const log = await Log.read();
    byId('loading').hidden = true;
    byId('main').hidden = false;
    new Page(log);
    performance.mark('ready');
}

begin().catch((error) => {
    fail('The data of this page cannot be read: it is not complete.');
    throw error;
});
