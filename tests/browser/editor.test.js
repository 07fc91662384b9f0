// The product as a person meets it: headless Chromium (Debian's /usr/bin/chromium, driven by
// playwright-core) clicks through the database editor as a logged-in administrator and through
// the example site's public pages, against a real kiv-server on a loopback port with a scratch
// copy of the example site. Every editor screen is saved as a screenshot for a person to look at.
//
//   node editor.test.js --server kiv-server --module libkivdatabase.so --modules DIR --out DIR
//
// --modules is the folder whose node_modules holds playwright-core (npm ci there); --out
// receives the screenshots (NN-language-screen.png) and, on failure, the page that failed.
'use strict';

const assert = require('node:assert/strict');
const childProcess = require('node:child_process');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');

const SOURCE = path.resolve(__dirname, '..', '..');
const PASSWORD = 'browser-proof';

function parseArguments() {
    const options = {};
    const argv = process.argv.slice(2);
    for (let i = 0; i < argv.length; i += 2) {
        options[argv[i].replace(/^--/, '')] = argv[i + 1];
    }
    for (const required of ['server', 'module', 'modules', 'out']) {
        if (!options[required]) {
            throw new Error(`missing --${required}`);
        }
        options[required] = path.resolve(options[required]);
    }
    return options;
}

const options = parseArguments();
const { chromium } = require(require.resolve('playwright-core', { paths: [options.modules] }));

// Pages added to the scratch site: the editor offers no Float type in its select, so a Float
// field is added the way a page author would, with kivModifyDatabase.
const EXTRA_PAGES = {
    't/addfloat.html': '<kivModifyDatabase mode="addField" databaseName="&kivPathArgument(db);" '
        + 'fieldName="&kivPathArgument(field);" fieldType="Float" resultVariableName="f">'
        + '<p>added=&kivPageVariable(f_FieldName);</p>',
};

// ---- the server -------------------------------------------------------------------------------

function passwordHash() {
    const result = childProcess.spawnSync(options.server, ['passwd'], { input: PASSWORD + '\n', encoding: 'utf8' });
    if (result.status !== 0) {
        throw new Error('kiv-server passwd failed: ' + result.stderr);
    }
    return result.stdout.trim();
}

function makeSite(language, hash) {
    const base = fs.mkdtempSync(path.join(os.tmpdir(), `kiv-browser-${language}-`));
    const root = path.join(base, 'site');
    const data = path.join(base, 'data');
    fs.cpSync(path.join(SOURCE, 'examples', 'site'), root, { recursive: true });
    fs.mkdirSync(data);
    for (const [name, text] of Object.entries(EXTRA_PAGES)) {
        fs.mkdirSync(path.dirname(path.join(root, name)), { recursive: true });
        fs.writeFileSync(path.join(root, name), text, 'latin1');
    }
    const config = path.join(base, 'server.toml');
    fs.writeFileSync(config, `
[server]
listen = "127.0.0.1"
port = 0
workers = 2
threads = 4
modules = ["${options.module}"]

[[region]]
name = "main"
root = "${root}"
data = "${data}"
language = "${language}"
protected = ["/manage/"]
[region.users]
admin = "${hash}"
`);
    return { base, root, data, config };
}

function startServer(site) {
    return new Promise((resolve, reject) => {
        const server = childProcess.spawn(options.server, ['serve', '--config', site.config],
            { stdio: ['ignore', 'ignore', 'pipe'] });
        let log = '';
        const timer = setTimeout(() => {
            server.kill('SIGKILL');
            reject(new Error('kiv-server did not start:\n' + log));
        }, 60000);
        server.stderr.on('data', (chunk) => {
            log += chunk.toString('latin1');
            const match = /listening on http:\/\/127\.0\.0\.1:(\d+)\//.exec(log);
            if (match && !server.port) {
                server.port = Number(match[1]);
                clearTimeout(timer);
                resolve(server);
            }
        });
        server.on('exit', (code) => {
            clearTimeout(timer);
            if (!server.port) {
                reject(new Error(`kiv-server exited with ${code}:\n${log}`));
            }
        });
        server.log = () => log;
    });
}

function stopServer(server) {
    return new Promise((resolve) => {
        if (server.exitCode !== null || server.signalCode !== null) {
            resolve();
            return;
        }
        const timer = setTimeout(() => server.kill('SIGKILL'), 40000);
        server.on('exit', () => {
            clearTimeout(timer);
            resolve();
        });
        server.kill('SIGTERM');
    });
}

// ---- the browser --------------------------------------------------------------------------------

// A fresh profile each time; playwright hands it to Chromium as --user-data-dir.
async function launchBrowser() {
    const profile = fs.mkdtempSync(path.join(os.tmpdir(), 'kiv-chromium-profile-'));
    const context = await chromium.launchPersistentContext(profile, {
        executablePath: '/usr/bin/chromium',
        headless: true,
        args: ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
            '--disable-background-networking', '--disable-component-update', '--disable-sync'],
        httpCredentials: { username: 'admin', password: PASSWORD },
        viewport: { width: 1100, height: 800 },
    });
    return { context, profile };
}

// One administrator at the editor: clicks buttons, fills fields, checks what the page says and
// saves a screenshot of every screen.
class Administrator {
    constructor(page, port, language, out) {
        this.page = page;
        this.base = `http://127.0.0.1:${port}`;
        this.language = language;
        this.out = out;
        this.shots = 0;
        this.problems = [];
        page.on('pageerror', (error) => this.problems.push('script error: ' + error.message));
        page.on('console', (message) => {
            // Failed loads are reported by URL below, where the browser's own favicon request
            // (the site has none) can be told apart.
            if (message.type() === 'error' && !message.text().startsWith('Failed to load resource')) {
                this.problems.push('console error: ' + message.text());
            }
        });
        page.on('response', (response) => {
            if (response.status() >= 400 && !response.url().endsWith('/favicon.ico')) {
                this.problems.push(`${response.status()} for ${response.url()}`);
            }
        });
    }

    async open(urlPath) {
        const response = await this.page.goto(this.base + urlPath);
        assert.equal(response.status(), 200, `GET ${urlPath}`);
        return response;
    }

    async shot(name) {
        this.shots += 1;
        const file = path.join(this.out, `${String(this.shots).padStart(2, '0')}-${this.language}-${name}.png`);
        await this.page.screenshot({ path: file, fullPage: true });
    }

    // Clicks the editor button with this label (the first one, or the nth) and waits for the page.
    async click(label, nth = 0) {
        const button = this.page.locator(`input[type=submit][name=kivEditDatabase_Action][value="${label}"]`).nth(nth);
        await Promise.all([this.page.waitForNavigation(), button.click()]);
        await this.checkPage(`after "${label}"`);
    }

    async confirm(label) {
        const button = this.page.locator(`input[type=submit][name=kivEditDatabase_Confirmation][value="${label}"]`);
        await Promise.all([this.page.waitForNavigation(), button.click()]);
        await this.checkPage(`after confirming "${label}"`);
    }

    async checkPage(when) {
        const text = await this.text();
        assert.ok(!/kiv-error/.test(await this.page.content()) || this.expectError,
            `an error block ${when}: ${text.slice(0, 800)}`);
        this.expectError = false;
    }

    async fill(name, value) {
        await this.page.locator(`[name="${name}"]`).first().fill(value);
    }

    async check(name, value) {
        await this.page.locator(`input[name="${name}"][value="${value}"]`).first().check();
    }

    async text() {
        return this.page.locator('body').innerText();
    }

    async shows(expected, what) {
        const text = await this.text();
        if (expected instanceof RegExp) {
            assert.match(text, expected, what);
        } else {
            assert.ok(text.includes(expected), `${what || 'page'}: expected "${expected}" in:\n${text.slice(0, 1500)}`);
        }
    }

    async valueOf(name) {
        return this.page.locator(`[name="${name}"]`).first().inputValue();
    }
}

// ---- the English walk through the editor ------------------------------------------------------

const FIELDS = [
    // name, select value, length, indexed
    ['Name', 'text', '40', true],
    ['Quantity', 'integer', '', false],
    ['Serial', 'uinteger', '', true],
    ['Price', 'number', '2', false],
    ['InStock', 'boolean', '', false],
    ['Notes', 'longtext', '', false],
];

const RECORDS = [
    // Name, Quantity, Serial, Price, InStock, Notes, Weight
    ['Anvil', '3', '1001', '19.99', 'true', 'heavy, "iron"', '45.5'],
    ['Bucket', '12', '1002', '4.50', 'false', 'tin <b>not bold</b>', '1.25'],
    ['Chisel', '7', '1003', '8.00', 'true', 'sharp & narrow', '0.3'],
    ['Drill', '2', '1004', '99.95', 'true', 'cordless', '2'],
    ['Easel', '5', '1005', '35.10', 'false', 'wooden', '6.75'],
];

async function fillRecord(admin, record) {
    const [name, quantity, serial, price, inStock, notes, weight] = record;
    await admin.fill('Name', name);
    await admin.fill('Quantity', quantity);
    await admin.fill('Serial', serial);
    await admin.fill('Price', price);
    await admin.check('InStock', inStock);
    await admin.fill('Notes', notes);
    await admin.fill('Weight', weight);
}

async function englishWalk(admin, site) {
    await admin.open('/manage/editor.html');
    await admin.shows('Databases:');
    await admin.shot('database-list');

    // A new database, straight into its field manager.
    await admin.check('kivEditDatabase_SelectedDatabase', '');
    await admin.fill('kivEditDatabase_Name', 'Inventory');
    await admin.click('Fields');
    await admin.shows('Fields (Inventory):');
    await admin.shot('new-database-fields');
    for (const [name, type, length, indexed] of FIELDS) {
        await admin.fill('kivEditDatabase_FieldName', name);
        await admin.page.selectOption('select[name=kivEditDatabase_FieldType]', type);
        await admin.fill('kivEditDatabase_FieldLength', length);
        await admin.check('kivEditDatabase_FieldIndexed', indexed ? 'indexed' : 'notindexed');
        await admin.click('Add Field');
        await admin.shows(`${name} (`, `field ${name} listed`);
    }
    // Float through a page, then back to the editor's field manager.
    await admin.open('/t/addfloat.html?db=Inventory&field=Weight');
    await admin.shows('added=Weight');
    await admin.open('/manage/editor.html');
    await admin.check('kivEditDatabase_SelectedDatabase', 'Inventory');
    await admin.click('Fields');
    await admin.shows('8 Fields Available');
    for (const [name] of FIELDS) {
        await admin.shows(`${name} (`);
    }
    await admin.shows('Weight (');
    await admin.shot('all-field-types');

    // Records: the empty search form, then five new records.
    await admin.click('Records');
    await admin.shows('Record Search (Inventory):');
    await admin.shows('There are no records in the "Inventory" database.');
    await admin.shot('empty-record-search');
    await admin.click('New');
    await admin.shows('Enter the new record information');
    await admin.shot('blank-record');
    for (const record of RECORDS) {
        await fillRecord(admin, record);
        await admin.click('Submit Record');
        await admin.shows('Record successfully added.');
    }
    await admin.shows('5 Records Available');
    await admin.shot('records-added');

    // Search with a criterion, NOT and ordering: InStock true, Name NOT Drill, by Price descending.
    await admin.click('Search');
    await admin.shows('Record Search (Inventory):');
    await admin.check('InStock', 'true');
    await admin.fill('Name', 'Drill');
    await admin.check('kivEditDatabase_Not', 'Name');
    await admin.check('kivEditDatabase_OrderField1', 'Price');
    await admin.check('kivEditDatabase_Desc', 'Price');
    await admin.shot('search-criteria');
    await admin.click('Search Now');
    await admin.shows(/Showing 1 - 2 of 2 results/);
    const found = await admin.text();
    assert.ok(found.indexOf('Anvil') < found.indexOf('Chisel'), 'ordered by Price descending: Anvil (19.99) before Chisel (8.00)');
    assert.ok(!found.includes('Drill') && !found.includes('Bucket'), 'NOT and the criterion leave Drill and Bucket out');
    await admin.shot('search-results-not-ordered');

    // Paging: every record, two a page, by Name.
    await admin.click('Search');
    await admin.check('kivEditDatabase_OrderField1', 'Name');
    await admin.fill('kivEditDatabase_ResultsPerPage', '2');
    await admin.click('Search Now');
    await admin.shows(/Showing 1 - 2 of 5 results/);
    await admin.shot('results-page-1');
    await admin.click('Next');
    await admin.shows(/Showing 3 - 4 of 5 results/);
    await admin.shows('Chisel');
    await admin.shot('results-page-2');
    await admin.click('Next');
    await admin.shows(/Showing 5 - 5 of 5 results/);
    await admin.shows('Easel');
    await admin.shot('results-page-3');
    await admin.click('Prev');
    await admin.shows(/Showing 3 - 4 of 5 results/);

    // View a record, then next and previous at both ends.
    await admin.page.locator('input[type=radio][name=kivEditDatabase_RecordID]').first().check();
    await admin.click('View');
    assert.equal(await admin.valueOf('Name'), 'Chisel');
    await admin.shot('record-view');
    await admin.click('First');
    assert.equal(await admin.valueOf('Name'), 'Anvil');
    await admin.click('<<');
    assert.equal(await admin.valueOf('Name'), 'Anvil', 'previous from the first record stays on it');
    await admin.shot('record-first-previous');
    await admin.click('>>');
    assert.equal(await admin.valueOf('Name'), 'Bucket');
    assert.equal(await admin.valueOf('Notes'), 'tin <b>not bold</b>', 'markup in a value is shown as text');
    await admin.click('Last');
    assert.equal(await admin.valueOf('Name'), 'Easel');
    await admin.click('>>');
    assert.equal(await admin.valueOf('Name'), 'Easel', 'next from the last record stays on it');
    await admin.shot('record-last-next');

    // Save, duplicate, delete.
    await admin.click('First');
    await admin.fill('Notes', 'heavy, "iron", saved');
    await admin.fill('Quantity', '4');
    await admin.click('Save');
    await admin.click('First');
    assert.equal(await admin.valueOf('Notes'), 'heavy, "iron", saved');
    assert.equal(await admin.valueOf('Quantity'), '4');
    await admin.shot('record-saved');
    await admin.click('Duplicate');
    await admin.shows('6 Records Available');
    await admin.shot('record-duplicated');
    await admin.click('Last');
    const duplicate = await admin.valueOf('Name');
    assert.equal(duplicate, 'Anvil', 'the duplicate is the last record');
    await admin.click('Delete');
    await admin.shows('Are you sure you want to delete this record?');
    await admin.shot('record-delete-confirmation');
    await admin.confirm('Yes');
    await admin.shows('5 Records Available');

    // Export with field positions: Name first, Price second; Notes is marked "X", which places it
    // with the fields without a position, after the positioned ones in field order.
    await admin.click('Search');
    await admin.click('Export');
    await admin.shows('Enter the name of the export destination file');
    await admin.fill('kivEditDatabase_ExportFilename', 'inventory.csv');
    await admin.fill('NamePos', '1');
    await admin.fill('PricePos', '2');
    await admin.fill('NotesPos', 'X');
    await admin.shot('export-form');
    await admin.click('Export Now');
    await admin.shot('export-done');
    const exported = fs.readFileSync(path.join(site.data, 'exports', 'inventory.csv'), 'latin1');
    const header = exported.split(/\r?\n/)[0];
    assert.equal(header.replace(/"/g, ''), 'Name,Price,KIVIDFIELD,Quantity,Serial,InStock,Notes,Weight',
        'the export follows the positions');
    assert.equal(exported.trim().split(/\r?\n/).length, 6, 'a header and five records');

    // Delete all, then import the exported file back.
    await admin.click('Delete All');
    await admin.shows('Are you sure you want to delete all of the records in the Inventory database?');
    await admin.shot('delete-all-confirmation');
    await admin.confirm('Yes');
    await admin.shows('There are no records in the "Inventory" database.');
    await admin.click('Import');
    await admin.shows('Enter the name of the import file');
    await admin.fill('kivEditDatabase_ImportFilename', 'inventory.csv');
    await admin.shot('import-form');
    await admin.click('Import Now');
    await admin.shows('5 Records Available');
    await admin.shot('import-done');
    await admin.click('Search Now');
    await admin.shows(/Showing 1 - 5 of 5 results/);
    await admin.shows('Easel');
}

// ---- deleting a database in French and Spanish --------------------------------------------------

const DELETION = {
    // The question itself is English in every language; the answer buttons are localized.
    fr: { title: 'Bases de donn\u00e9es', yes: 'Oui', no: 'Non' },
    es: { title: 'Bases de datos', yes: 'Si', no: 'No' },
};

async function deletionWalk(admin, language) {
    const words = DELETION[language];
    await admin.open('/manage/editor.html');
    await admin.shows(words.title);
    await admin.shot('database-list');
    await admin.check('kivEditDatabase_SelectedDatabase', '');
    await admin.fill('kivEditDatabase_Name', 'Scratch');
    await admin.click('Fields');
    await admin.shot('new-database');
    await admin.open('/manage/editor.html');
    await admin.shows('Scratch');
    await admin.check('kivEditDatabase_SelectedDatabase', 'Scratch');
    await admin.click('Remove');
    await admin.shows('Are you sure you want to delete the Scratch database?');
    await admin.page.locator(`input[name=kivEditDatabase_Confirmation][value="${words.no}"]`).waitFor();
    await admin.shot('delete-database-confirmation');
    await admin.confirm(words.yes);
    await admin.shot('database-deleted');
    const list = await admin.text();
    assert.ok(!list.includes('Scratch'), `the database is gone in ${language}: ${list.slice(0, 800)}`);
    assert.ok(list.includes('People'), 'the other database stays');
}

// ---- the public pages ---------------------------------------------------------------------------

async function publicPages(page, port, out) {
    const base = `http://127.0.0.1:${port}`;
    await page.goto(base + '/people/');
    assert.match(await page.locator('body').innerText(), /Showing 1-20\s+of 45/);
    await Promise.all([page.waitForNavigation(), page.getByText('Next \u00bb').click()]);
    assert.match(await page.locator('body').innerText(), /Showing 21-40\s+of 45/);
    await Promise.all([page.waitForNavigation(), page.getByText('Next \u00bb').click()]);
    assert.match(await page.locator('body').innerText(), /Showing 41-45\s+of 45/);
    await Promise.all([page.waitForNavigation(), page.getByText('\u00ab Previous').click()]);
    assert.match(await page.locator('body').innerText(), /Showing 21-40\s+of 45/);
    await page.screenshot({ path: path.join(out, 'public-directory-page-2.png'), fullPage: true });

    await page.goto(base + '/people/');
    const someCity = (await page.locator('table.people tr:nth-child(2) td:nth-child(2)').innerText()).trim();
    await page.goto(base + '/people/search.html');
    await page.fill('#city', someCity);
    await Promise.all([page.waitForNavigation(), page.click('input[type=submit]')]);
    const results = await page.locator('body').innerText();
    assert.ok(results.includes(`in "${someCity}"`), `search for ${someCity}: ${results.slice(0, 600)}`);
    const rows = await page.locator('table.people tr td:nth-child(2)').allInnerTexts();
    assert.ok(rows.length > 0 && rows.every((cell) => cell.trim() === someCity), `only ${someCity}: ${rows}`);
    await page.screenshot({ path: path.join(out, 'public-search.png'), fullPage: true });

    await page.goto(base + '/people/add.html');
    await page.fill('#FirstName', 'Zo\u00e9');
    await page.fill('#LastName', "O'Browser & Co");
    await page.fill('#City', 'Clicktown');
    await page.fill('#Email', 'zoe@example.org');
    await Promise.all([page.waitForNavigation(), page.click('input[type=submit]')]);
    const added = await page.locator('body').innerText();
    assert.ok(added.includes("Added Zo\u00e9 O'Browser & Co (Clicktown)."), `the page says it was added: ${added.slice(0, 600)}`);
    assert.ok(added.includes("O'Browser & Co"), 'the name comes back as text');
    await page.screenshot({ path: path.join(out, 'public-added.png'), fullPage: true });
    await Promise.all([page.waitForNavigation(), page.getByText('See everyone in Clicktown').click()]);
    const town = await page.locator('body').innerText();
    assert.ok(town.includes('Zo\u00e9') && town.includes("O'Browser & Co"), `the new person is found: ${town.slice(0, 600)}`);
    await page.screenshot({ path: path.join(out, 'public-search-added.png'), fullPage: true });
}

// ---- running it ---------------------------------------------------------------------------------

async function inLanguage(language, hash, walk) {
    const site = makeSite(language, hash);
    const server = await startServer(site);
    let context;
    let profile;
    let admin;
    try {
        ({ context, profile } = await launchBrowser());
        const page = context.pages()[0] || await context.newPage();
        admin = new Administrator(page, server.port, language, options.out);
        await walk(admin, site, page, server);
        assert.deepEqual(admin.problems, [], 'no script or console errors');
        console.log(`ok ${language}: ${admin.shots} editor screens`);
    } catch (error) {
        if (admin) {
            const html = await admin.page.content().catch(() => '');
            fs.writeFileSync(path.join(options.out, `FAILED-${language}.html`), html, 'latin1');
            await admin.page.screenshot({ path: path.join(options.out, `FAILED-${language}.png`), fullPage: true })
                .catch(() => {});
        }
        console.error('server log:\n' + server.log().slice(-3000));
        throw error;
    } finally {
        if (context) {
            await context.close();
        }
        await stopServer(server);
        if (profile) {
            fs.rmSync(profile, { recursive: true, force: true });
        }
        fs.rmSync(site.base, { recursive: true, force: true });
    }
}

async function main() {
    fs.mkdirSync(options.out, { recursive: true });
    for (const old of fs.readdirSync(options.out)) {
        if (old.endsWith('.png') || old.endsWith('.html')) {
            fs.rmSync(path.join(options.out, old));
        }
    }
    const hash = passwordHash();
    await inLanguage('en', hash, async (admin, site, page, server) => {
        await englishWalk(admin, site);
        await publicPages(page, server.port, options.out);
    });
    await inLanguage('fr', hash, (admin) => deletionWalk(admin, 'fr'));
    await inLanguage('es', hash, (admin) => deletionWalk(admin, 'es'));
    console.log(`screenshots in ${options.out}`);
}

main().catch((error) => {
    console.error(error.stack || error);
    process.exit(1);
});
