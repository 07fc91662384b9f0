// The product as a person meets it: headless Chromium (Debian's /usr/bin/chromium, driven by
// playwright-core) clicks through the database editor as a logged-in administrator and through
// the example site's public pages, against a real kiv-server on a loopback port with a scratch
// copy of the example site. Every editor screen is checked at a desktop and a phone width with
// the server's editor stylesheet (no sideways scrolling, targets big enough to hit) and saved as
// a screenshot at both widths for a person to look at.
//
//   node editor.test.js --server kiv-server --module libkivdatabase.so --modules DIR --out DIR
//
// --modules is the folder whose node_modules holds playwright-core (npm ci there); --out
// receives the screenshots (NN-language-screen-WIDTH[-dark].png) and, on failure, the page
// that failed.
'use strict';

const assert = require('node:assert/strict');
const childProcess = require('node:child_process');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');

const SOURCE = path.resolve(__dirname, '..', '..');
const PASSWORD = 'browser-proof';
const STYLESHEET = '/kiv-assets/editor.css';
// The widths every editor screen is checked and saved at: a desktop and a phone.
const VIEWPORTS = [{ width: 1280, height: 800 }, { width: 390, height: 844 }];
// The smallest box a finger or a pointer must be able to hit, in CSS pixels.
const MIN_TARGET = 40;
// The server sends every page with its region's Content-Security-Policy, the default one here;
// the editor's stylesheet, the error box and the example pages must need no inline style,
// script or outside font. A violation is a console error, which fails the walk.
const CONTENT_SECURITY_POLICY = "default-src 'self'; script-src 'self'; object-src 'none'; base-uri 'self'";

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
// field is added the way a page author would, with kivModifyDatabase behind a form that posts
// (a tag that writes does not run for a GET).
const EXTRA_PAGES = {
    't/addfloat.html': '<form method="post" action="addfloat-done.html?db=&kivPathArgument(db);'
        + '&amp;field=&kivPathArgument(field);"><input type="submit" value="Add the field"></form>',
    't/addfloat-done.html': '<kivModifyDatabase mode="addField" databaseName="&kivPathArgument(db);" '
        + 'fieldName="&kivPathArgument(field);" fieldType="Float" resultVariableName="f">'
        + '<p>added=&kivPageVariable(f_FieldName);</p>',
    // An import of a file of the exports folder into People, posted like the editor's.
    't/import.html': '<form method="post" action="import-done.html?file=&kivPathArgument(file);">'
        + '<input type="submit" value="Import"></form>',
    't/import-done.html': '<kivModifyDatabase mode="import" databaseName="People" '
        + 'fileLocation="&kivPathArgument(file);" resultVariableName="r"><p>imported=&kivPageVariable(r_ResultCount);</p>',
};

// The editor on an ODBC data source (the SQLite ODBC driver over a file in the scratch folder),
// for its capability report and the driver's field types; left out where the driver is missing.
const ODBC_DRIVER = ['x86_64-linux-gnu', 'aarch64-linux-gnu', 'i386-linux-gnu']
    .map((triplet) => `/usr/lib/${triplet}/odbc/libsqlite3odbc.so`)
    .find((file) => fs.existsSync(file));

// ---- the server -------------------------------------------------------------------------------

function passwordHash() {
    const result = childProcess.spawnSync(options.server, ['passwd'], { input: PASSWORD + '\n', encoding: 'utf8' });
    if (result.status !== 0) {
        throw new Error('kiv-server passwd failed: ' + result.stderr);
    }
    return result.stdout.trim();
}

function makeSite(language, hash, charset = 'iso-8859-1') {
    const base = fs.mkdtempSync(path.join(os.tmpdir(), `kiv-browser-${language}-`));
    const root = path.join(base, 'site');
    const data = path.join(base, 'data');
    fs.cpSync(path.join(SOURCE, 'examples', 'site'), root, { recursive: true });
    fs.mkdirSync(data);
    for (const [name, text] of Object.entries(EXTRA_PAGES)) {
        fs.mkdirSync(path.dirname(path.join(root, name)), { recursive: true });
        fs.writeFileSync(path.join(root, name), text, 'latin1');
    }
    const editorPage = path.join(root, 'manage', 'editor.html');
    const environment = { ...process.env };
    if (ODBC_DRIVER) {
        fs.writeFileSync(path.join(base, 'odbcinst.ini'), `[KivSQLite3]\nDriver=${ODBC_DRIVER}\n`);
        fs.writeFileSync(path.join(base, 'odbc.ini'),
            `[KivSqlite]\nDriver=KivSQLite3\nDatabase=${path.join(base, 'odbc.db')}\nTimeout=10000\n`);
        environment.ODBCSYSINI = base;
        environment.ODBCINI = path.join(base, 'odbc.ini');
        const editor = fs.readFileSync(editorPage, 'latin1');
        fs.writeFileSync(path.join(root, 'manage', 'odbc.html'),
            editor.replace('<kivEditDatabase ', '<kivEditDatabase odbcDataSource="KivSqlite" odbcUsername="kiv" '),
            'latin1');
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
charset = "${charset}"
protected = ["/manage/"]
[region.users]
admin = "${hash}"
`);
    return { base, root, data, config, environment };
}

function startServer(site) {
    return new Promise((resolve, reject) => {
        const server = childProcess.spawn(options.server, ['serve', '--config', site.config],
            { stdio: ['ignore', 'ignore', 'pipe'], env: site.environment });
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
        viewport: VIEWPORTS[0],
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
        this.pagesUnderPolicy = 0;
        this.problems = [];
        page.on('pageerror', (error) => this.problems.push('script error: ' + error.message));
        page.on('console', (message) => {
            // Failed loads are reported by URL below, where the browser's own favicon request
            // (the site has none) can be told apart.
            const text = message.text();
            if (message.type() === 'error' && !text.startsWith('Failed to load resource')) {
                this.problems.push('console error: ' + text);
            }
        });
        page.on('response', (response) => {
            if (response.status() >= 400 && !response.url().endsWith('/favicon.ico')) {
                this.problems.push(`${response.status()} for ${response.url()}`);
            }
            if (response.request().isNavigationRequest()) {
                this.checkPolicy(response);
            }
        });
    }

    // Every page the browser shows came with the policy; login areas may not be framed at all.
    checkPolicy(response) {
        const policy = response.headers()['content-security-policy'] || '';
        const login = /\/(manage|kiv-admin)\//.test(new URL(response.url()).pathname);
        if (!policy.startsWith(CONTENT_SECURITY_POLICY)
            || !policy.endsWith(login ? "frame-ancestors 'none'" : "frame-ancestors 'self'")) {
            this.problems.push(`policy "${policy}" for ${response.url()}`);
        }
        this.pagesUnderPolicy += 1;
    }

    async open(urlPath) {
        const response = await this.page.goto(this.base + urlPath);
        assert.equal(response.status(), 200, `GET ${urlPath}`);
        return response;
    }

    // Checks the screen at every width (and in the dark theme too when asked) and saves it.
    async shot(name, { dark = false, buttons = true } = {}) {
        this.shots += 1;
        const prefix = `${String(this.shots).padStart(2, '0')}-${this.language}-${name}`;
        for (const scheme of dark ? ['light', 'dark'] : ['light']) {
            await this.page.emulateMedia({ colorScheme: scheme });
            for (const viewport of VIEWPORTS) {
                await this.page.setViewportSize(viewport);
                const suffix = `${viewport.width}${scheme === 'dark' ? '-dark' : ''}`;
                await checkLayout(this.page, `${name} at ${suffix}`, scheme, buttons);
                await this.page.screenshot({ path: path.join(this.out, `${prefix}-${suffix}.png`), fullPage: true,
                    animations: 'disabled' });
            }
        }
        await this.page.emulateMedia({ colorScheme: 'light' });
        await this.page.setViewportSize(VIEWPORTS[0]);
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

// ---- the editor's stylesheet at work ------------------------------------------------------------

// What the editor's stylesheet promises on every screen: it is loaded, the page does not scroll
// sideways, every control is at least MIN_TARGET pixels each way, buttons keep that as their
// minimum height, the editor's presentational colours are replaced, and the theme follows the
// colour scheme. Screens after a failed operation hold the error and no form.
async function checkLayout(page, what, scheme, withButtons) {
    const facts = await page.evaluate(({ stylesheet, minTarget }) => {
        const sheet = [...document.styleSheets].find((s) => s.href && new URL(s.href).pathname === stylesheet);
        const describe = (element) => `<${element.tagName.toLowerCase()} name="${element.getAttribute('name')}"`
            + ` value="${element.getAttribute('value')}">`;
        const controls = [...document.querySelectorAll('input:not([type=hidden]), select, textarea')]
            .filter((element) => element.getClientRects().length > 0);
        const buttons = controls.filter((element) => element.type === 'submit');
        const legacyColours = ['rgb(0, 0, 255)', 'rgb(255, 153, 0)', 'rgb(255, 0, 0)', 'rgb(0, 153, 0)',
            'rgb(255, 204, 51)', 'rgb(200, 216, 240)'];
        return {
            rules: sheet ? sheet.cssRules.length : 0,
            scrollWidth: document.documentElement.scrollWidth,
            clientWidth: document.documentElement.clientWidth,
            buttons: buttons.length,
            small: controls.filter((element) => {
                const box = element.getBoundingClientRect();
                return box.width < minTarget || box.height < minTarget;
            }).map(describe),
            lowButtons: buttons.filter((button) => parseFloat(getComputedStyle(button).minHeight) < minTarget)
                .map(describe),
            legacy: [...document.querySelectorAll('[bgcolor]')]
                .filter((element) => legacyColours.includes(getComputedStyle(element).backgroundColor))
                .map((element) => element.outerHTML.slice(0, 80)),
            background: getComputedStyle(document.body).backgroundColor,
        };
    }, { stylesheet: STYLESHEET, minTarget: MIN_TARGET });
    assert.ok(facts.rules > 0, `${what}: ${STYLESHEET} is loaded`);
    assert.ok(facts.scrollWidth <= facts.clientWidth,
        `${what}: the page scrolls sideways (${facts.scrollWidth} px wide in ${facts.clientWidth})`);
    assert.equal(facts.buttons > 0, withButtons, `${what}: the editor's buttons are there, or not`);
    assert.deepEqual(facts.small, [], `${what}: controls smaller than ${MIN_TARGET} px`);
    assert.deepEqual(facts.lowButtons, [], `${what}: buttons without a ${MIN_TARGET} px minimum height`);
    assert.deepEqual(facts.legacy, [], `${what}: the editor's own colours show through`);
    const [red, green, blue] = facts.background.match(/\d+/g).map(Number);
    const light = (red + green + blue) / 3 > 128;
    assert.equal(light, scheme === 'light', `${what}: the page background ${facts.background} follows the ${scheme} theme`);
}

// Keyboard focus is visible: tabbing to a button and to a radio button shows a ring.
async function checkFocusRing(page) {
    for (const selector of ['input[type=submit][name=kivEditDatabase_Action]', 'input[type=radio]']) {
        let ring = null;
        for (let presses = 0; presses < 40 && !ring; presses += 1) {
            await page.keyboard.press('Tab');
            ring = await page.evaluate((wanted) => {
                const active = document.activeElement;
                if (!active || !active.matches(wanted)) {
                    return null;
                }
                const style = getComputedStyle(active);
                return { style: style.outlineStyle, width: parseFloat(style.outlineWidth) };
            }, selector);
        }
        assert.ok(ring, `the keyboard reaches ${selector}`);
        assert.equal(ring.style, 'solid', `${selector} shows a focus ring`);
        assert.ok(ring.width >= 2, `${selector}: the focus ring is ${ring.width} px wide`);
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
    // The administration page under the same policy: its stylesheet is the server's own file.
    await admin.open('/kiv-admin/');
    await admin.shows('kiv-server administration');
    assert.equal(await admin.page.locator('body').evaluate((body) => getComputedStyle(body).fontFamily), 'sans-serif',
        'the administration stylesheet applies');
    await admin.open('/manage/editor.html');
    await admin.shows('Databases:');
    await admin.shot('database-list', { dark: true });
    await checkFocusRing(admin.page);

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
    // A field added and deleted again, through its confirmation.
    await admin.fill('kivEditDatabase_FieldName', 'Scrap');
    await admin.click('Add Field');
    await admin.check('kivEditDatabase_FieldName', 'Scrap');
    await admin.click('Delete Field');
    await admin.shows('Are you sure you want to delete the Scrap field?');
    await admin.shot('field-delete-confirmation');
    await admin.confirm('Yes');
    assert.ok(!(await admin.text()).includes('Scrap ('), 'the field is gone');
    // Float through a page, then back to the editor's field manager.
    await admin.open('/t/addfloat.html?db=Inventory&field=Weight');
    await Promise.all([admin.page.waitForNavigation(), admin.page.locator('input[type=submit]').click()]);
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
    await admin.shot('search-criteria', { dark: true });
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
    await admin.shot('results-page-1', { dark: true });
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
    await admin.shot('record-view', { dark: true });
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

    // A search that finds nothing, and an import of a file that is not there.
    await admin.click('Search');
    await admin.fill('Name', 'Zeppelin');
    await admin.click('Search Now');
    await admin.shows('No records found.');
    await admin.shot('search-no-results');
    await admin.click('Import');
    await admin.fill('kivEditDatabase_ImportFilename', 'missing.csv');
    admin.expectError = true;
    // The server's error box has no inline style for the policy to block: the stylesheet gives it
    // its look.
    await admin.click('Import Now');
    assert.equal(await admin.page.locator('.kiv-error').count(), 1, 'the failed import shows the error box');
    await admin.shot('import-error', { dark: true, buttons: false });

    // The field manager of a database with records: a notice instead of the add form.
    await admin.open('/manage/editor.html');
    await admin.check('kivEditDatabase_SelectedDatabase', 'Inventory');
    await admin.click('Fields');
    await admin.shows('Kiv has detected records in the current database.');
    await admin.shot('fields-with-records');
}

async function odbcWalk(admin) {
    if (!ODBC_DRIVER) {
        console.log('no SQLite ODBC driver: the ODBC report is not shown');
        return;
    }
    await admin.open('/manage/odbc.html');
    await admin.shows('Databases:');
    await admin.click('ODBC');
    await admin.shows('ODBC Driver Reported Capabilites');
    await admin.shot('odbc-report');
    await Promise.all([admin.page.waitForNavigation(), admin.page.locator('input[name=Return]').click()]);
    // A fresh data source has no tables, so the list offers no radio button for a new name.
    await admin.fill('kivEditDatabase_Name', 'Gadgets');
    await admin.click('Fields');
    await admin.shows('Fields (Gadgets):');
    await admin.shot('odbc-fields');
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

// ---- the administration page --------------------------------------------------------------------

// The administration page at both widths: it never scrolls sideways, and is saved as a screenshot.
async function adminShot(admin, name) {
    for (const viewport of VIEWPORTS) {
        await admin.page.setViewportSize(viewport);
        const widths = await admin.page.evaluate(() => ({
            scroll: document.documentElement.scrollWidth, client: document.documentElement.clientWidth,
        }));
        assert.ok(widths.scroll <= widths.client,
            `${name} at ${viewport.width}: the page scrolls sideways (${widths.scroll} px wide in ${widths.client})`);
        await admin.page.screenshot({ path: path.join(admin.out, `admin-${admin.language}-${name}-${viewport.width}.png`),
            fullPage: true, animations: 'disabled' });
    }
    await admin.page.setViewportSize(VIEWPORTS[0]);
}

async function submitAdminForm(admin, selector) {
    await Promise.all([admin.page.waitForNavigation(), admin.page.locator(selector).click()]);
}

// After the English walk: the overview counts the databases' records, the export the editor made
// downloads byte for byte, goes back up under another name, and a backup is made with the button.
async function adminWalk(admin, site) {
    await admin.open('/kiv-admin/');
    const databases = await admin.page.locator('section.databases tr').allInnerTexts();
    assert.ok(databases.some((row) => /^Inventory\s+5\s+[\d.]+ (bytes|KiB)\s+\d{4}-/.test(row)),
        `the overview counts Inventory's records: ${databases}`);
    assert.ok(databases.some((row) => /^People\s+45\s/.test(row)), `and People's: ${databases}`);
    await adminShot(admin, 'overview');

    const onDisk = fs.readFileSync(path.join(site.data, 'exports', 'inventory.csv'));
    const [download] = await Promise.all([admin.page.waitForEvent('download'),
        admin.page.locator('section.files a', { hasText: 'inventory.csv' }).click()]);
    assert.equal(download.suggestedFilename(), 'inventory.csv');
    const downloaded = fs.readFileSync(await download.path());
    assert.ok(downloaded.equals(onDisk), 'the download is the exported file, byte for byte');

    await admin.page.locator('section.files input[name=file]').setInputFiles(
        { name: 'inventory-copy.csv', mimeType: 'text/csv', buffer: downloaded });
    await submitAdminForm(admin, 'section.files input[type=submit]');
    await admin.shows('Uploaded inventory-copy.csv');
    assert.ok(fs.readFileSync(path.join(site.data, 'exports', 'inventory-copy.csv')).equals(onDisk),
        'the upload is stored byte for byte');
    assert.equal(await admin.page.locator('section.files a', { hasText: 'inventory-copy.csv' }).count(), 1);
    await adminShot(admin, 'uploaded');

    await submitAdminForm(admin, 'section.backups input[type=submit]');
    await admin.shows(/Backed up 2 databases/);
    const backups = fs.readdirSync(path.join(site.data, 'backups'));
    assert.equal(backups.length, 1);
    assert.deepEqual(fs.readdirSync(path.join(site.data, 'backups', backups[0])).filter((f) => f.endsWith('.kivdb')).sort(),
        ['Inventory.kivdb', 'People.kivdb']);
    await admin.shows(backups[0]);
    await adminShot(admin, 'backup-made');
}

// A UTF-8 region with the editor in French: the module's own words and a name imported from a
// UTF-8 file both show as written, in a page the browser reads as UTF-8.
async function utf8Walk(admin) {
    const response = await admin.open('/manage/editor.html');
    assert.equal(response.headers()['content-type'], 'text/html; charset=UTF-8');
    assert.equal(await admin.page.evaluate(() => document.characterSet), 'UTF-8');
    await admin.shows('Bases de donn\u00e9es');
    await admin.shot('utf8-database-list');

    await admin.open('/kiv-admin/');
    const csv = 'LastName,FirstName,City,Email,Phone\r\nN\u00fa\u00f1ez,Jos\u00e9,M\u00e1laga,jose@example.org,+34 600\r\n';
    await admin.page.locator('section.files input[name=file]').setInputFiles(
        { name: 'gens.csv', mimeType: 'text/csv', buffer: Buffer.from(csv, 'utf8') });
    await submitAdminForm(admin, 'section.files input[type=submit]');
    await admin.shows('Uploaded gens.csv');
    await adminShot(admin, 'utf8-uploaded');
    await admin.open('/t/import.html?file=gens.csv');
    await submitAdminForm(admin, 'input[type=submit]');
    await admin.shows('imported=1');

    // The city typed into the public search form goes out as UTF-8 and finds the UTF-8 record.
    await admin.open('/people/search.html');
    await admin.page.fill('#city', 'M\u00e1laga');
    await submitAdminForm(admin, 'input[type=submit]');
    await admin.shows('Jos\u00e9');
    await admin.shows('N\u00fa\u00f1ez');
    await admin.page.screenshot({ path: path.join(admin.out, 'utf8-public-search.png'), fullPage: true });
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

async function inLanguage(language, hash, walk, charset = 'iso-8859-1') {
    const site = makeSite(language, hash, charset);
    const server = await startServer(site);
    let context;
    let profile;
    let admin;
    try {
        ({ context, profile } = await launchBrowser());
        const page = context.pages()[0] || await context.newPage();
        admin = new Administrator(page, server.port, language, options.out);
        await walk(admin, site, page, server);
        assert.deepEqual(admin.problems, [], 'no script or console errors, every page under the policy');
        assert.ok(admin.pagesUnderPolicy > 0, 'pages were checked for the policy');
        console.log(`ok ${language}: ${admin.shots} editor screens, ${admin.pagesUnderPolicy} pages under the policy`);
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
        await adminWalk(admin, site);
        await odbcWalk(admin);
        await publicPages(page, server.port, options.out);
    });
    await inLanguage('fr', hash, (admin) => deletionWalk(admin, 'fr'));
    await inLanguage('es', hash, (admin) => deletionWalk(admin, 'es'));
    await inLanguage('fr', hash, (admin) => utf8Walk(admin), 'utf-8');
    console.log(`screenshots in ${options.out}`);
}

main().catch((error) => {
    console.error(error.stack || error);
    process.exit(1);
});
